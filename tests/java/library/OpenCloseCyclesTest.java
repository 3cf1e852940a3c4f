package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.io.OutputStream;
import java.io.PrintStream;
import java.lang.ref.WeakReference;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Thousands of tables, iterators and watchers, opened, used in every way and closed: nothing of them stays. */
class OpenCloseCyclesTest {
    private static final int CYCLES = 10_000;
    private static final int SETTLED = 2_000;
    private static final int ALLOWED_GROWTH = 8 * 1024;  // KiB over 8,000 cycles: a kilobyte kept in each would show
    private static final int ALLOWED_NOISE = 10;  // references of the virtual machine's own
    private static final List<String> FIXED_HEAP = List.of("-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch",
            "-XX:ReservedCodeCacheSize=16m", "-XX:MaxMetaspaceSize=64m");

    @TempDir
    Path directory;

    /** The process that does it, with a heap that does not grow. */
    static final class Cycles {
        private final Path directory;
        private final List<WeakReference<Object>> handedOver = new ArrayList<>();

        private Cycles(Path directory) {
            this.directory = directory;
        }

        private Provider provider(String name) {
            return new Provider(directory).named(name);
        }

        /** Everything that is handed to the library in a cycle must be let go behind it. */
        private <T> T remembered(boolean isWatched, T object) {
            if (isWatched) {
                handedOver.add(new WeakReference<>(object));
            }
            return object;
        }

        private void cycle(boolean isWatched) {
            IKSVTboMessageListener listener =
                    remembered(isWatched, new RecordingListener());
            JNITboLibLoader.setLogFacility(remembered(isWatched, new RecordingFacility()));
            try (JNITboMessageTable table = JNITboMessageTable.open(remembered(isWatched, provider("table")),
                    JNITboMessageTable.MODE_WRITE)) {
                table.drop();
                for (int i = 1; i <= 3; ++i) {
                    table.writeMessage(i, i, 0, i, i, 'D', null, false, false, null, null, "wire", null, null, null);
                }
                table.readMessages(new int[] {1, 2, 3}, listener);
                table.getLastGoodMsgSeqNum(0, remembered(isWatched, new HostileValues.ThrowingHolder()));
            } catch (JNITboException thrownByTheHolder) {
                if (thrownByTheHolder.getErrorCode() != JNITboErrorCodes.JNI_ERROR) {
                    throw thrownByTheHolder;
                }
            }
            try (JNITboMessageTable table = JNITboMessageTable.open(provider("table"), JNITboMessageTable.MODE_READ);
                    JNITboMessageTableIterator iterator =
                            table.getMessages(remembered(isWatched, new RawConditions()));
                    JNITboMessageWatcher watcher = remembered(isWatched, JNITboMessageWatcher.open(table))) {
                while (iterator.next()) {
                    iterator.getWireMessage();
                }
                watcher.startWatchingCompact(new int[] {1}, (count, ids, wires) -> 1);
            }
            try (JNITboSessionInfoTable session = JNITboSessionInfoTable.open(
                    remembered(isWatched, provider("session")), JNITboSessionInfoTable.MODE_WRITE)) {
                session.write(1, session.read(1)[0] + 1);
            }
            try {
                JNITboMessageTable.open(provider("missing"), JNITboMessageTable.MODE_READ).close();
            } catch (JNITboException missing) {
                // As it must be.
            }
        }

        private long stillHeld() throws InterruptedException {
            long held = handedOver.size();
            for (int i = 0; i < 200 && held > 0; ++i) {
                System.gc();
                Thread.sleep(5);
                held = handedOver.stream().filter(reference -> reference.get() != null).count();
            }
            return held;
        }

        public static void main(String[] arguments) throws Exception {
            // What the library prints of exceptions on purpose is not wanted ten thousand times.
            System.setErr(new PrintStream(OutputStream.nullOutputStream()));
            Natives.load();
            TestRun.globalReferences();  // loads what counting needs
            Cycles cycles = new Cycles(Path.of(arguments[0]));
            int total = Integer.parseInt(arguments[1]);
            for (int i = 0; i < SETTLED; ++i) {
                cycles.cycle(false);
            }
            Path directory = Path.of(arguments[0]);
            int descriptors = TestRun.descriptorsBelow(directory);
            int references = TestRun.globalReferences();
            int resident = TestRun.residentKibibytes();
            for (int i = SETTLED; i < total; ++i) {
                cycles.cycle(i % 1000 == 0);
                if (i % SETTLED == 0) {
                    System.out.println("cycles " + i);  // a silent child counts as stuck
                }
            }
            JNITboLibLoader.uninitLibrary();
            System.out.println("handed over " + cycles.handedOver.size());
            System.out.println("still held " + cycles.stillHeld());
            System.out.println("descriptors " + (TestRun.descriptorsBelow(directory) - descriptors));
            System.out.println("references " + (TestRun.globalReferences() - references));
            System.out.println("grown " + (TestRun.residentKibibytes() - resident));
        }
    }

    @Test
    void tenThousandCyclesKeepNoDescriptorNoReferenceAndNoMemory() throws Exception {
        int total = CYCLES * TestRun.effort();
        try (ChildJvm child = ChildJvm.start(directory, "", FIXED_HEAP, Cycles.class, directory.toString(),
                Integer.toString(total))) {
            List<String> output = child.finish();
            assertTrue(number(output, "handed over ") >= 8 * 7, () -> "too little was looked at: " + output);
            assertEquals(0, number(output, "still held "), "objects that were handed to the library are still held");
            assertTrue(number(output, "descriptors ") <= 0, () -> "descriptors are kept: " + output);
            assertTrue(number(output, "references ") < ALLOWED_NOISE, () -> "references are kept: " + output);
            assertTrue(number(output, "grown ") < ALLOWED_GROWTH, () -> "KiB of memory are kept: " + output);
        }
        TestRun.figure("Java misuse", "open and close cycles", total);
    }

    private static int number(List<String> output, String what) {
        return output.stream().filter(line -> line.startsWith(what)).findFirst()
                .map(line -> Integer.parseInt(line.substring(what.length()))).orElseThrow();
    }
}
