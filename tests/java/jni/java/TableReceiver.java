import java.util.Arrays;

/** A receiver that asks for the table of each message. */
public class TableReceiver extends Receiver {
    public boolean refusing;

    public void onBatchTables(int[] tableIndexes) {
        if (refusing) {
            throw new IllegalStateException("thrown by a receiver on purpose");
        }
        calls.add("tables " + Arrays.toString(tableIndexes));
    }
}
