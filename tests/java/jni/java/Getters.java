import java.util.Arrays;

/** Getters of every kind that the library calls by name. */
public class Getters {
    public Integer getInteger() {
        return -7;
    }

    public Long getLong() {
        return 1L << 40;
    }

    public Double getDouble() {
        return 0.5;
    }

    public Boolean getBoolean() {
        return true;
    }

    public Integer getNullInteger() {
        return null;
    }

    public Long getNullLong() {
        return null;
    }

    public Double getNullDouble() {
        return null;
    }

    public Boolean getNullBoolean() {
        return null;
    }

    public Integer getTwice(int number) {
        return 2 * number;
    }

    public Long getTwiceAsLong(int number) {
        return 2L * number;
    }

    public Double getHalf(int number) {
        return number / 2.0;
    }

    public Boolean getIsEven(int number) {
        return number % 2 == 0;
    }

    public String[] getNames(int number) {
        return new String[number];
    }

    public String getText() {
        return "text";
    }

    public String getSum(int first, long second) {
        return Long.toString(first + second);
    }

    public int[] getInts() {
        return new int[] {3, 1, 2};
    }

    public long[] getLongs(int count) {
        long[] made = new long[count];
        Arrays.fill(made, Long.MIN_VALUE);
        return made;
    }

    public int[] getNullInts() {
        return null;
    }

    public long[] getNullLongs() {
        return null;
    }

    public Integer getThrowing() {
        throw new UnsupportedOperationException("thrown by a getter on purpose");
    }

    public int[] getThrowingInts() {
        throw new UnsupportedOperationException("thrown by a getter on purpose");
    }

    private Integer getPrivate() {
        return 11;
    }

    /** Keeps the compiler from complaining about getPrivate. */
    public Integer callPrivate() {
        return getPrivate();
    }
}
