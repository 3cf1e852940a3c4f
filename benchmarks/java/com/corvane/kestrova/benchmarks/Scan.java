package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * One turn at scanning through a Java iterator: the wire message's bytes and five getters for each order, the sequence
 * number, the time, ClOrdID, OrderQty and Price. What they give is summed and compared, see native_orders.cpp.
 */
final class Scan {
    private static final int REPEATS = 3;

    private Scan() {
    }

    /** Arguments: the library, the table's directory, its number of orders, the digest of all of them. */
    public static void main(String[] arguments) {
        JNITboLibLoader.load(arguments[0]);
        JNITboLibLoader.initLibrary();
        int messages = Integer.parseInt(arguments[2]);
        long digest = Long.parseUnsignedLong(arguments[3]);
        long[] times = new long[REPEATS];
        try (JNITboMessageTable table = OrdersTable.open(Path.of(arguments[1]), JNITboMessageTable.MODE_READ)) {
            // The first scan warms up: the second one writes over its time.
            for (int repeat = -1; repeat < REPEATS; ++repeat) {
                long start = System.nanoTime();
                long sum = scan(table, messages);
                times[Math.max(repeat, 0)] = System.nanoTime() - start;
                if (sum != digest) {
                    throw new IllegalStateException("a scan through Java gives other orders than were written");
                }
            }
        }
        Arrays.sort(times);
        Result.print("read", "java", "scan forward", "messages/s", 1e9 * messages / times[REPEATS / 2]);
    }

    private static long scan(JNITboMessageTable table, int messages) {
        long digest = 0;
        int count = 0;
        try (JNITboMessageTableIterator orders = OrdersTable.all(table)) {
            while (orders.next()) {
                digest += digest(orders);
                ++count;
            }
        }
        if (count != messages) {
            throw new IllegalStateException("a scan through Java finds " + count + " orders");
        }
        return digest;
    }

    private static long digest(JNITboMessageTableIterator order) {
        byte[] wire = order.getWireMessageAsByteArray();
        String clOrdId = order.getStringField(OrdersTable.CL_ORD_ID);
        return wire.length * 3L + wire[wire.length / 2] * 5L + clOrdId.length() * 7L
                + clOrdId.charAt(clOrdId.length() / 2) * 11L + order.getMsgSeqNum() * 13L + order.getTimestamp() * 17L
                + order.getNumericFieldAsLong(OrdersTable.ORDER_QTY) * 19L
                + Double.doubleToRawLongBits(order.getNumericFieldAsDouble(OrdersTable.PRICE)) * 23L;
    }
}
