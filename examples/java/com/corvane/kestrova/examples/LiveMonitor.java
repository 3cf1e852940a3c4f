package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import com.corvane.kestrova.engine.tabulo.store.TabuloException;
import com.corvane.kestrova.engine.tabulo.store.Watch;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Path;

/**
 * Follows the demo's two tables, also while an engine writes them, and prints a line for each message. The last uniform
 * id is kept in a small file after each batch, and the next start goes on behind it: what was printed before the id was
 * kept may be printed again after a crash, and nothing is left out.
 */
public final class LiveMonitor implements Watch.Listener {
    private static final String[] TABLES = {"client-day1", "client-day2"};
    private static final int EXIT_FAILED = 1;
    private static final int EXIT_USAGE = 2;
    private static final int NEVER = -1;
    private static final int LONGEST_LINE = 120;

    private final LiveMonitorState lastId;
    private final int idleCallsToEnd;
    private int idleCalls;
    private long printed;
    private int lastPrinted;

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
            Tabulo.load(Path.of(args[0]));
            Tabulo.logTo(new DemoLog());
            monitor.follow(new TableDirectory(Path.of(args[1])));
            status = 0;
        } catch (TabuloException failure) {
            System.err.println("The library reports " + failure);
        } catch (InterruptedException stopped) {
            System.err.println("The monitor was interrupted.");
        } catch (IOException | UncheckedIOException | NumberFormatException | UnsatisfiedLinkError failure) {
            System.err.println("The monitor cannot run: " + failure.getMessage());
        }
        if (status != 0) {
            System.exit(status);
        }
    }

    private void follow(TableDirectory directory) throws InterruptedException {
        try (MessageStore day1 = directory.openReader(TABLES[0]); MessageStore day2 = directory.openReader(TABLES[1])) {
            Watch.Builder both = Watch.of(day1, day2);
            if (lastId.isKnown()) {
                both.fromId(lastId.get() + 1);
            }
            // One thread for the watch is all that it needs.
            try (Watch watch = both.start(task -> new Thread(task, "watch").start(), this)) {
                Runtime.getRuntime().addShutdownHook(new Thread(watch::close));
                watch.await();
            }
        }
        System.out.printf("%d messages; the last uniform id is %s.%n", printed, lastId);
    }

    @Override
    public void onMessage(MessageStore store, StoredMessage message) {
        System.out.println(line(message.uniformId(), message.wireText()));
        lastPrinted = message.uniformId();
    }

    @Override
    public void onBatchEnd(Watch watch, int count) {
        System.out.flush();
        if (count > 0) {
            printed += count;
            lastId.store(lastPrinted);
        }
        idleCalls = count > 0 ? 0 : idleCalls + 1;
        if (idleCalls == idleCallsToEnd) {
            watch.stop();
        }
    }

    private static String line(int uniformId, String text) {
        StringBuilder line = new StringBuilder().append(uniformId).append("  ");
        // Field separators and whatever else would upset a terminal.
        text.chars().limit(LONGEST_LINE).forEach(c -> line.append(Character.isISOControl(c) ? '|' : (char) c));
        return text.length() > LONGEST_LINE ? line.append("...").toString() : line.toString();
    }
}
