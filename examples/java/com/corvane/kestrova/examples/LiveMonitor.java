package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.Arrays;

/**
 * Follows the demo's two tables, also while an engine writes them, and prints a line for each message. The last uniform
 * id is kept in a small file after each batch, and the next start goes on behind it: what was printed before the id was
 * kept may be printed again after a crash, and nothing is left out.
 */
public final class LiveMonitor {
    private static final String[] TABLES = {"client-day1", "client-day2"};
    private static final int EXIT_FAILED = 1;
    private static final int EXIT_USAGE = 2;
    private static final int NEVER = -1;
    private static final int LONGEST_LINE = 120;
    private static final long PATIENCE_MILLIS = 1000;

    private final LiveMonitorState lastId;
    private final int idleCallsToEnd;
    private int idleCalls;
    private long printed;
    private volatile boolean ending;

    private LiveMonitor(LiveMonitorState lastId, int idleCallsToEnd) {
        this.lastId = lastId;
        this.idleCallsToEnd = idleCallsToEnd;
    }

    /**
     * Runs the monitor until Ctrl-C.
     *
     * @param args path of libtabulo.so, directory of the tables, file for the last uniform id, and optionally after how
     *        many batches without a message in a row to end
     */
    public static void main(String[] args) {
        if (args.length < 3 || args.length > 4) {
            System.err.println("usage: LiveMonitor <libtabulo.so> <directory of the tables> <file for the last id>"
                    + " [<empty batches before it ends>]");
            System.exit(EXIT_USAGE);
        }
        int status = EXIT_FAILED;
        try {
            LiveMonitorState lastId = LiveMonitorState.read(Path.of(args[2]));
            LiveMonitor monitor = new LiveMonitor(lastId, args.length == 4 ? Integer.parseInt(args[3]) : NEVER);
            JNITboLibLoader.load(Path.of(args[0]));
            JNITboLibLoader.initLibrary();
            JNITboLibLoader.setLogFacility(new DemoLog());
            monitor.endWithTheProcess(Thread.currentThread());
            monitor.follow(new TableDirectory(Path.of(args[1])));
            status = 0;
        } catch (JNITboException failure) {
            System.err.println("The library reports error " + failure.getErrorCode() + ": " + failure.getMessage());
        } catch (IOException | UncheckedIOException | NumberFormatException | UnsatisfiedLinkError failure) {
            System.err.println("The monitor cannot run: " + failure.getMessage());
        }
        if (status != 0) {
            System.exit(status);
        }
    }

    /** Lets Ctrl-C end the watch at its next batch; a watch that pauses for longer ends with the process. */
    private void endWithTheProcess(Thread watching) {
        Runtime.getRuntime().addShutdownHook(new Thread(() -> {
            ending = true;
            try {
                watching.join(PATIENCE_MILLIS);
            } catch (InterruptedException interrupted) {
                Thread.currentThread().interrupt();
            }
        }));
    }

    private void follow(TableDirectory directory) {
        int from = lastId.isKnown() ? lastId.get() + 1 : JNITboMessageWatcher.FROM_BEGINNING;
        int[] starts = new int[TABLES.length];
        Arrays.fill(starts, from);
        // The watcher gets handles of its own: no other thread may use them while it runs.
        try (JNITboMessageTable day1 = directory.open(TABLES[0], JNITboMessageTable.MODE_READ);
                JNITboMessageTable day2 = directory.open(TABLES[1], JNITboMessageTable.MODE_READ);
                JNITboMessageWatcher watcher = JNITboMessageWatcher.open(day1, day2)) {
            watcher.startWatchingCompact(starts, this::take);
        }
        System.out.printf("%d messages; the last uniform id is %s.%n", printed, lastId);
    }

    private int take(int count, int[] uniformIds, byte[][] wireMessages) {
        for (int i = 0; i < count; ++i) {
            System.out.println(line(uniformIds[i], wireMessages[i]));
        }
        System.out.flush();
        if (count > 0) {
            printed += count;
            lastId.store(uniformIds[count - 1]);
        }
        idleCalls = count > 0 ? 0 : idleCalls + 1;
        return ending || idleCalls == idleCallsToEnd ? 1 : 0;
    }

    private static String line(int uniformId, byte[] wireMessage) {
        String text = wireMessage == null ? "" : new String(wireMessage, StandardCharsets.ISO_8859_1);
        StringBuilder line = new StringBuilder().append(uniformId).append("  ");
        // Field separators and whatever else would upset a terminal.
        text.chars().limit(LONGEST_LINE).forEach(c -> line.append(Character.isISOControl(c) ? '|' : (char) c));
        return text.length() > LONGEST_LINE ? line.append("...").toString() : line.toString();
    }
}
