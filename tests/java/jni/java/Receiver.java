import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;

/** Receives the batches of all three kinds and writes them down. */
public class Receiver {
    public final List<String> calls = new ArrayList<>();
    public int answer;
    public boolean throwing;

    public int onGetMessages(int count, long[] values, byte[][] first, byte[][] second) {
        for (int i = 0; i < count; ++i) {
            calls.add(values[i] + " " + text(first[i]) + " " + text(second[i]));
        }
        return end("bytes", count, values.length, first.length, second.length);
    }

    public int onGetMessages(int count, int[] values, byte[][] first) {
        for (int i = 0; i < count; ++i) {
            calls.add(values[i] + " " + text(first[i]));
        }
        return end("compact", count, values.length, first.length);
    }

    public int onGetMessages(int count, long[] values, String[] first, String[] second) {
        for (int i = 0; i < count; ++i) {
            calls.add(values[i] + " " + first[i] + " " + second[i]);
        }
        return end("text", count, values.length, first.length, second.length);
    }

    private int end(String kind, int... lengths) {
        StringBuilder line = new StringBuilder(kind);
        for (int length : lengths) {
            line.append(' ').append(length);
        }
        calls.add(line.toString());
        if (throwing) {
            throw new IllegalStateException("thrown by a receiver on purpose");
        }
        return answer;
    }

    private static String text(byte[] bytes) {
        return bytes == null ? "null" : new String(bytes, StandardCharsets.ISO_8859_1);
    }

    /** What was received, line by line; forgotten afterwards. */
    public String take() {
        String all = String.join("\n", calls);
        calls.clear();
        return all;
    }
}
