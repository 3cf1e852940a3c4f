package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.util.log.ILogger;
import java.io.IOException;
import java.lang.ref.WeakReference;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.Test;

/** What is taken is given back: descriptors, references into Java, memory. */
class ResourceLeakTest extends OnTables {
    private static final int ALLOWED_GROWTH = 8 * 1024;  // KiB, so that 30 KiB lost in each read are found
    private static final int ALLOWED_NOISE = 20;  // of the virtual machine's own
    private static final int MANY = 2000;

    /** Runs once to settle, then many times more; nothing may be held afterwards that was not held before. */
    private static void assertNothingIsKept(int times, Runnable body) {
        TestRun.globalReferences();
        for (int i = 0; i < 3; ++i) {
            body.run();
        }
        int descriptors = TestRun.descriptors();
        int references = TestRun.globalReferences();
        for (int i = 0; i < times; ++i) {
            body.run();
        }
        int keptDescriptors = TestRun.descriptors() - descriptors;
        int keptReferences = TestRun.globalReferences() - references;
        assertTrue(keptDescriptors < ALLOWED_NOISE, () -> keptDescriptors + " descriptors are kept");
        assertTrue(keptReferences < ALLOWED_NOISE, () -> keptReferences + " global references are kept");
    }

    @Test
    void opensAndClosesKeepNothing() {
        assertNothingIsKept(MANY, () -> {
            long handle = Natives.open(provider(), Natives.WRITE);
            Natives.close(handle);
            Natives.free(handle);
        });
    }

    @Test
    void refusedOpensKeepNothing() throws IOException {
        Files.write(file(), latin1("no table at all, but longer than a generic header"));
        Provider tooMany = provider().strings(Provider.names("s", 13));
        assertNothingIsKept(500, () -> {
            assertThrows(JNITboException.class, () -> Natives.open(provider(), Natives.WRITE));
            assertThrows(JNITboException.class, () -> Natives.open(provider(), Natives.READ));
            assertThrows(JNITboException.class, () -> Natives.open(tooMany, Natives.WRITE));
            assertThrows(JNITboException.class, () -> Natives.open(provider().named(null), Natives.WRITE));
        });
    }

    @Test
    void dropsKeepNothing() {
        long handle = openForWriting();
        assertNothingIsKept(1000, () -> {
            writeNumbered(handle, 1, 1);
            Natives.drop(handle);
        });
        assertEquals(0, Natives.lastUniform(handle));
    }

    @Test
    void readsKeepNothingHoweverTheyEnd() {
        long handle = openForWriting();
        writeNumbered(handle, 1, 5);
        assertNothingIsKept(500, () -> {
            Natives.readMessages(handle, range(1, 5), -1, new RecordingListener());
            Natives.readMessages(handle, range(1, 5), -1, new RecordingListener(call -> 1));
            assertThrows(JNITboException.class, () -> Natives.readMessages(handle, range(1, 5), -1, "no listener"));
            assertThrows(JNITboException.class, () -> Natives.readMessages(handle, null, -1, new RecordingListener()));
            assertThrows(JNITboException.class,
                    () -> Natives.readMessages(handle, range(1, 5), 6, new RecordingListener()));
        });
    }

    @Test
    void facilitiesKeepNothing() {
        assertNothingIsKept(500, () -> {
            JNITboLibLoader.setLogFacility(new RecordingFacility());
            JNITboLibLoader.setLogFacility((Object) new RecordingFacility() {
                @Override
                public ILogger error() {
                    return null;
                }
            });
        });
    }

    private static WeakReference<Object> installAndForget() {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        return new WeakReference<>(facility);
    }

    @Test
    void aReplacedFacilityIsLetGo() throws InterruptedException {
        WeakReference<Object> first = installAndForget();
        System.gc();
        assertTrue(first.get() != null, "an installed facility's loggers are kept");
        JNITboLibLoader.setLogFacility(new RecordingFacility());
        for (int i = 0; i < 100 && first.get() != null; ++i) {
            System.gc();
            Thread.sleep(10);
        }
        assertTrue(first.get() == null, "a replaced facility is still held");
    }

    /** Reads a table over and over and prints by how many KiB the process has grown meanwhile. */
    static final class RepeatedReader {
        public static void main(String[] arguments) throws IOException {
            long handle = Natives.open(new Provider(Path.of(arguments[0])), Natives.WRITE);
            for (int i = 1; i <= MANY; ++i) {
                Message message = Message.numbered(i);
                message.wire = "w".repeat(1000);
                Natives.writeTexts(handle, message);
            }
            int[] ids = range(1, MANY);
            int[] total = new int[1];
            IKSVTboMessageListener counting = (count, timestamps, wires, others) -> {
                total[0] += count;
                return 0;
            };
            int before = 0;
            for (int i = 0; i < 400; ++i) {
                if (i == 100) {
                    before = TestRun.residentKibibytes();
                }
                Natives.readMessages(handle, ids, -1, counting);
            }
            System.out.println("read " + total[0]);
            System.out.println("grown " + (TestRun.residentKibibytes() - before));
            Natives.free(handle);
        }
    }

    @Test
    void readingOverAndOverTakesNoMoreMemory() throws Exception {
        List<String> fixedHeap = List.of("-Xms64m", "-Xmx64m", "-XX:+AlwaysPreTouch");
        try (ChildJvm child = ChildJvm.start(directory, "", fixedHeap, RepeatedReader.class, directory.toString())) {
            List<String> output = child.finish();
            assertTrue(output.contains("read " + 400 * MANY), () -> "not all was read: " + output);
            String last = output.stream().filter(line -> line.startsWith("grown ")).findFirst().orElseThrow();
            assertTrue(Integer.parseInt(last.substring(6)) < ALLOWED_GROWTH,
                    () -> "KiB of memory over 300 reads of 2 MB each: " + last);
        }
    }
}
