package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.sun.management.ThreadMXBean;
import java.io.IOException;
import java.io.OutputStream;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Locale;

/**
 * One turn at appending through Java, measured as the native benchmark does: orders are made in batches outside the
 * timed part, every other batch is timed as a whole, the batches between them one order at a time.
 *
 * <p>The orders come from a table that was written natively, so that the two files can be compared afterwards.
 */
final class Append {
    private static final int BATCH = 256;
    private static final int MEMORY_LOOKS = 64;
    private static final ThreadMXBean THREADS = (ThreadMXBean) ManagementFactory.getThreadMXBean();

    private final Way way;
    private final Path source;
    private final Order[] batch = new Order[BATCH];
    private final int[] latencies;
    private int latencyCount;
    private long timed;
    private int timedMessages;
    private long memory;
    private long allocated;
    private long askingAllocates;

    private Append(Way way, Path source, int messages) {
        this.way = way;
        this.source = source;
        latencies = new int[messages];
        Arrays.setAll(batch, i -> new Order());
    }

    /** Arguments: the library, the way, the native table's directory, an own one, orders, warming orders. */
    public static void main(String[] arguments) throws IOException {
        JNITboLibLoader.load(arguments[0]);
        JNITboLibLoader.initLibrary();
        String name = arguments[1];
        Path directory = Path.of(arguments[3]);
        int messages = Integer.parseInt(arguments[4]);
        Append append = new Append(Way.valueOf(name.toUpperCase(Locale.ROOT)), Path.of(arguments[2]), messages);

        append.run(Files.createDirectories(directory.resolve("warm-up")), Integer.parseInt(arguments[5]));
        append.forget();
        append.askingAllocates = allocatedByAsking();
        warmPageCache(directory.resolve("pages"), messages);
        System.gc();
        long idle = ownMemory();
        append.run(Files.createDirectories(directory.resolve("store")), messages);
        append.print("java-" + name, idle);
    }

    /**
     * Writes a file as large as the table gets, and removes it, for the reason that append_benchmark.cpp gives: page by
     * page, as memory in larger pieces is not what appends are given.
     */
    private static void warmPageCache(Path path, int messages) throws IOException {
        byte[] bytes = new byte[4096];
        try (OutputStream file = Files.newOutputStream(path)) {
            for (long written = 0; written < messages * 1024L; written += bytes.length) {
                file.write(bytes);
            }
        }
        Files.delete(path);
    }

    private void run(Path directory, int messages) throws IOException {
        try (JNITboMessageTable made = OrdersTable.open(source, JNITboMessageTable.MODE_READ);
                JNITboMessageTableIterator orders = OrdersTable.all(made);
                Target table = way.open(directory)) {
            int batches = (messages + BATCH - 1) / BATCH;
            for (int b = 0; b < batches; ++b) {
                int count = fill(orders, Math.min(BATCH, messages - b * BATCH));
                if (b % 2 == 0) {
                    timed += storeAll(table, count);
                    timedMessages += count;
                } else {
                    storeEach(table, count);
                }
                if (b == batches - 1 || b % Math.max(1, batches / MEMORY_LOOKS) == 0) {
                    memory = Math.max(memory, ownMemory());
                }
            }
        }
    }

    private int fill(JNITboMessageTableIterator orders, int count) {
        for (int i = 0; i < count; ++i) {
            if (!orders.next()) {
                throw new IllegalStateException("the native table has too few orders");
            }
            way.read(batch[i], orders);
        }
        return count;
    }

    private long storeAll(Target table, int count) {
        long allocatedBefore = THREADS.getCurrentThreadAllocatedBytes();
        long start = System.nanoTime();
        for (int i = 0; i < count; ++i) {
            table.store(batch[i]);
        }
        long time = System.nanoTime() - start;
        allocated += THREADS.getCurrentThreadAllocatedBytes() - allocatedBefore - askingAllocates;
        return time;
    }

    private void storeEach(Target table, int count) {
        long before = System.nanoTime();
        for (int i = 0; i < count; ++i) {
            table.store(batch[i]);
            long after = System.nanoTime();
            latencies[latencyCount++] = (int) (after - before);
            before = after;
        }
    }

    private void forget() {
        latencyCount = 0;
        timed = 0;
        timedMessages = 0;
        memory = 0;
        allocated = 0;
    }

    /** What a question for the allocated bytes allocates itself. */
    private static long allocatedByAsking() {
        long before = THREADS.getCurrentThreadAllocatedBytes();
        return THREADS.getCurrentThreadAllocatedBytes() - before;
    }

    private void print(String subject, long idle) {
        Arrays.sort(latencies, 0, latencyCount);
        Result.print("append", subject, "rate", "messages/s", 1e9 * timedMessages / timed);
        Result.print("append", subject, "p50", "ns", percentile(0.5));
        Result.print("append", subject, "p99", "ns", percentile(0.99));
        Result.print("append", subject, "p99.9", "ns", percentile(0.999));
        Result.print("append", subject, "max", "ns", percentile(1));
        Result.print("append", subject, "memory", "bytes", memory - idle);
        Result.print("append", subject, "allocated", "bytes/message", (double) allocated / timedMessages);
    }

    private double percentile(double part) {
        return latencies[(int) (part * (latencyCount - 1))];
    }

    /** Bytes of memory that the process has to itself, as the native benchmarks count it. */
    private static long ownMemory() throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("RssAnon:")) {
                return Long.parseLong(line.replaceAll("\\D", "")) * 1024;
            }
        }
        throw new IOException("/proc/self/status has no RssAnon");
    }
}
