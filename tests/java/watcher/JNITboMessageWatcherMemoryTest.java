package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

/**
 * A long watch in a virtual machine with a small heap, beside another one that writes. The environment variable
 * TABULO_WATCHED_MESSAGES sets the number of messages; each takes a bit more than 1 KB in a table and 250 bytes in the
 * watching machine's DEBUG log, and both are removed at the end.
 */
class JNITboMessageWatcherMemoryTest extends OnTables {
    private static final int USUAL_MESSAGES = 100_000;
    private static final int WIRE_LENGTH = 1024;
    private static final int ALLOWED_GROWTH = 8 * 1024;  // KiB of the process, its heap is touched at the start
    private static final List<String> OPTIONS =
            List.of("-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch", "-XX:ReservedCodeCacheSize=16m");

    private static int messages() {
        String wanted = System.getenv("TABULO_WATCHED_MESSAGES");
        return wanted == null ? USUAL_MESSAGES : Integer.parseInt(wanted);
    }

    /** Watches until the last message has come; prints what it uses ten times on the way. */
    static final class Watcher implements JNITboMessageWatcher.CompactListener {
        private final int last;
        private int received;
        private int reported;

        private Watcher(int last) {
            this.last = last;
        }

        public static void main(String[] arguments) {
            Natives.load();
            int last = Integer.parseInt(arguments[1]);
            Path directory = Path.of(arguments[0]);
            try (JNITboMessageTable one = open(directory, "one");
                    JNITboMessageTable two = open(directory, "two");
                    JNITboMessageWatcher watcher = JNITboMessageWatcher.open(one, two)) {
                System.out.println("ready");
                watcher.startWatchingCompact(new int[] {1, 1}, new Watcher(last));
            }
            System.out.println("done");
        }

        private static JNITboMessageTable open(Path directory, String name) {
            return JNITboMessageTable.open(TableConfiguration.builder(name, directory).build(),
                    JNITboMessageTable.MODE_READ);
        }

        @Override
        public int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages) {
            for (int i = 0; i < count; ++i) {
                ++received;
                if (uniformIds[i] != received || wireMessages[i].length != WIRE_LENGTH
                        || wireMessages[i][received % WIRE_LENGTH] != (byte) ('a' + received % 26)) {
                    System.out.println("message " + uniformIds[i] + " came in place of " + received);
                    return 1;
                }
            }
            if (received / (last / 10) > reported) {
                reported = received / (last / 10);
                System.gc();
                Runtime runtime = Runtime.getRuntime();
                System.out.println("used " + residentKibibytes() + " "
                        + (runtime.totalMemory() - runtime.freeMemory()) / 1024);
            }
            return received == last ? 1 : 0;
        }
    }

    private static int residentKibibytes() {
        try {
            return Files.readAllLines(Path.of("/proc/self/status")).stream().filter(line -> line.startsWith("VmRSS:"))
                    .mapToInt(line -> Integer.parseInt(line.replaceAll("\\D", ""))).findFirst().orElseThrow();
        } catch (IOException unreadable) {
            throw new AssertionError(unreadable);
        }
    }

    private static void write(long[] writers, int first, int last) {
        byte[] wire = new byte[WIRE_LENGTH];
        Message message = new Message();
        message.setWire(wire);
        for (int id = first; id <= last; ++id) {
            Arrays.fill(wire, (byte) ('a' + id % 26));
            message.uniformId = id;
            message.connMsgId = id;
            message.timestamp = id;
            Natives.writeBytes(writers[id * 31 % 7 % 2], message);
        }
    }

    @Test
    void aLongWatchUsesNoMoreMemoryAtItsEndThanAtItsBeginning() throws Exception {
        int last = messages();
        long[] writers = {open(provider().named("one"), Natives.WRITE), open(provider().named("two"), Natives.WRITE)};
        // Before its first delivery a watch cannot know what is missing: the first message is there when it starts.
        write(writers, 1, 1);
        List<Integer> resident = new ArrayList<>();
        List<Integer> heap = new ArrayList<>();
        try (ChildJvm child = ChildJvm.start(directory, "", OPTIONS, Watcher.class, directory.toString(),
                Integer.toString(last))) {
            child.awaitLine("ready");
            write(writers, 2, last);
            for (String line : child.finish()) {
                if (line.startsWith("used ")) {
                    resident.add(Integer.parseInt(line.split(" ")[1]));
                    heap.add(Integer.parseInt(line.split(" ")[2]));
                }
            }
        }
        assertEquals(10, resident.size(), "the watch reports ten times; KiB resident: " + resident);
        // The first reports still see classes being loaded and code being compiled.
        int growth = resident.get(9) - resident.get(2);
        assertTrue(growth < ALLOWED_GROWTH, () -> "the process grows by " + growth + " KiB: " + resident);
        int heapGrowth = heap.get(9) - heap.get(2);
        assertTrue(heapGrowth < ALLOWED_GROWTH, () -> "the heap in use grows by " + heapGrowth + " KiB: " + heap);
        System.out.println(last + " messages; KiB resident " + resident + ", of the heap in use " + heap);
    }
}
