package com.corvane.kestrova.engine.tabulo;

import java.util.Arrays;

/**
 * What a query asks of one numeric field: the value is one of the given ones, or lies inside one of the given
 * intervals, or is absent and absent values were admitted. A filter with nothing in it is refused by the builder of
 * conditions.
 *
 * <p>The bounds of an interval are not selected unless they are also given as values; an interval whose maximum is
 * its minimum selects nothing, and one whose maximum is below its minimum is refused by the builder. A filter compares either doubles or longs: a stored long becomes a double for the
 * first kind, and a stored double is truncated towards zero (not a number gives 0) for the second. In a filter of
 * doubles a stored value that is not a number counts as absent. Objects are immutable; each method gives a new one.
 */
public final class NumericFieldFilter {
    /** Type number of a filter on doubles. */
    static final int DOUBLE = 1;
    /** Type number of a filter on longs. */
    static final int LONG = 2;

    private final int type;
    private final double[][] doubles;
    private final long[][] longs;
    private final boolean includeNull;

    /** The two-dimensional arrays hold the values, the minimums and the maximums. */
    private NumericFieldFilter(int type, double[][] doubles, long[][] longs, boolean includeNull) {
        this.type = type;
        this.doubles = doubles;
        this.longs = longs;
        this.includeNull = includeNull;
    }

    /**
     * Selects double values.
     *
     * @param accepted the accepted values; may be empty when intervals follow
     * @return the filter
     */
    public static NumericFieldFilter anyOfDoubles(double... accepted) {
        return new NumericFieldFilter(DOUBLE, new double[][] {accepted.clone(), {}, {}}, new long[3][0], false);
    }

    /**
     * Selects long values.
     *
     * @param accepted the accepted values; may be empty when intervals follow
     * @return the filter
     */
    public static NumericFieldFilter anyOfLongs(long... accepted) {
        return new NumericFieldFilter(LONG, new double[3][0], new long[][] {accepted.clone(), {}, {}}, false);
    }

    /**
     * Selects the doubles of an open interval.
     *
     * @param minimum lower bound, itself not selected
     * @param maximum upper bound, itself not selected
     * @return the filter
     */
    public static NumericFieldFilter betweenDoubles(double minimum, double maximum) {
        return anyOfDoubles().orBetween(minimum, maximum);
    }

    /**
     * Selects the longs of an open interval.
     *
     * @param minimum lower bound, itself not selected
     * @param maximum upper bound, itself not selected
     * @return the filter
     */
    public static NumericFieldFilter betweenLongs(long minimum, long maximum) {
        return anyOfLongs().orBetween(minimum, maximum);
    }

    /**
     * Selects the values of one more open interval.
     *
     * @param minimum lower bound, itself not selected
     * @param maximum upper bound, itself not selected
     * @return the wider filter
     * @throws IllegalStateException when this is a filter on longs
     */
    public NumericFieldFilter orBetween(double minimum, double maximum) {
        requireType(DOUBLE, "a filter on longs takes long bounds");
        return new NumericFieldFilter(type,
                new double[][] {doubles[0], with(doubles[1], minimum), with(doubles[2], maximum)}, longs, includeNull);
    }

    /**
     * Selects the values of one more open interval.
     *
     * @param minimum lower bound, itself not selected
     * @param maximum upper bound, itself not selected
     * @return the wider filter
     */
    public NumericFieldFilter orBetween(long minimum, long maximum) {
        if (type == DOUBLE) {
            return orBetween((double) minimum, (double) maximum);
        }
        return new NumericFieldFilter(type, doubles,
                new long[][] {longs[0], with(longs[1], minimum), with(longs[2], maximum)}, includeNull);
    }

    /**
     * Also selects messages that lack the field. Whole blocks can then no longer be skipped because of this filter.
     *
     * @return the wider filter
     */
    public NumericFieldFilter orAbsent() {
        return new NumericFieldFilter(type, doubles, longs, true);
    }

    /**
     * Says what the filter selects.
     *
     * @return the values and intervals
     */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder("in ");
        text.append(type == DOUBLE ? Arrays.toString(doubles[0]) : Arrays.toString(longs[0]));
        for (int i = 0; i < doubles[1].length; ++i) {
            text.append(" or between ").append(doubles[1][i]).append(" and ").append(doubles[2][i]);
        }
        for (int i = 0; i < longs[1].length; ++i) {
            text.append(" or between ").append(longs[1][i]).append(" and ").append(longs[2][i]);
        }
        return text.append(includeNull ? " or absent" : "").toString();
    }

    /** Refuses a filter that can only be a mistake: one with nothing in it, or with an interval that is reversed. */
    void check() {
        int parts = doubles[0].length + doubles[1].length + longs[0].length + longs[1].length;
        if (parts == 0 && !includeNull) {
            throw new IllegalArgumentException("the filter has nothing in it, and would select nothing");
        }
        for (int i = 0; i < doubles[1].length; ++i) {
            if (doubles[1][i] > doubles[2][i]) {
                throw new IllegalArgumentException(
                        "an interval is reversed: " + doubles[1][i] + " to " + doubles[2][i]);
            }
        }
        for (int i = 0; i < longs[1].length; ++i) {
            if (longs[1][i] > longs[2][i]) {
                throw new IllegalArgumentException("an interval is reversed: " + longs[1][i] + " to " + longs[2][i]);
            }
        }
    }

    int type() {
        return type;
    }

    boolean includeNull() {
        return includeNull;
    }

    double[] doubleValues() {
        return doubles[0].clone();
    }

    double[] doubleMinimums() {
        return doubles[1].clone();
    }

    double[] doubleMaximums() {
        return doubles[2].clone();
    }

    long[] longValues() {
        return longs[0].clone();
    }

    long[] longMinimums() {
        return longs[1].clone();
    }

    long[] longMaximums() {
        return longs[2].clone();
    }

    private void requireType(int required, String otherwise) {
        if (type != required) {
            throw new IllegalStateException(otherwise);
        }
    }

    private static double[] with(double[] bounds, double bound) {
        double[] longer = Arrays.copyOf(bounds, bounds.length + 1);
        longer[bounds.length] = bound;
        return longer;
    }

    private static long[] with(long[] bounds, long bound) {
        long[] longer = Arrays.copyOf(bounds, bounds.length + 1);
        longer[bounds.length] = bound;
        return longer;
    }
}
