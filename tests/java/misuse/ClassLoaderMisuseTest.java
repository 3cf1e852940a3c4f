package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.File;
import java.io.IOException;
import java.lang.ref.WeakReference;
import java.lang.reflect.Method;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.FutureTask;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The library in class loaders of their own, as containers have them: two at a time, one after the other. */
class ClassLoaderMisuseTest {
    private static final int ROUNDS = 3;

    @TempDir
    Path directory;

    /** What runs in a class loader of its own, where every class of ours is there once more. */
    public static final class Guest {
        private final Path directory;
        private JNITboMessageTable held;

        public Guest(Path directory) {
            this.directory = directory;
        }

        private JNITboMessageTable open(String name, int mode) {
            return JNITboMessageTable.open(TableConfiguration.builder(name, directory).build(), mode);
        }

        private static void check(boolean isRight, String what) {
            if (!isRight) {
                throw new AssertionError(what);
            }
        }

        public void load(String library) {
            JNITboLibLoader.load(library);
            JNITboLibLoader.initLibrary();
        }

        /** Uses what looks up classes from native code: callbacks, exceptions, a facility, boxed getters. */
        public void work() {
            RecordingFacility facility = new RecordingFacility();
            JNITboLibLoader.setLogFacility(facility);
            try (JNITboMessageTable table = open("table", JNITboMessageTable.MODE_WRITE);
                    JNITboMessageTable reader = open("table", JNITboMessageTable.MODE_READ);
                    JNITboMessageWatcher watcher = JNITboMessageWatcher.open(reader)) {
                table.drop();
                table.writeMessage(1, 1, 0, 1, 1, 'D', null, false, false, null, null, "wire", null, null, null);
                RecordingListener listener = new RecordingListener();
                table.readMessages(new int[] {1}, listener);
                check(listener.wires().equals(List.of("wire")), "the listener of this loader got nothing");
                int[] watched = new int[1];
                watcher.startWatchingCompact(new int[] {1}, (count, ids, wires) -> {
                    watched[0] += count;
                    return 1;
                });
                check(watched[0] == 1, "the watcher of this loader got nothing");
                try (JNITboMessageTableIterator messages =
                        table.getMessages(RawConditions.of(conditions -> conditions.possDup = false))) {
                    check(messages.next(), "the query of this loader found nothing");
                }
                int code = 0;
                try {
                    table.getLastMessageId(-1);
                } catch (JNITboException ofThisLoader) {
                    code = ofThisLoader.getErrorCode();
                }
                check(code == INDEX_OUT_OF_BOUNDS_ERROR, "the exception is not of this loader");
                check(facility.warnings().contains("out of bounds"), "the facility of this loader got nothing");
            }
            JNITboLibLoader.uninitLibrary();
        }

        public void hold() {
            held = open("held", JNITboMessageTable.MODE_WRITE);
        }

        public void release() {
            held.close();
        }

        /** Another copy of the library writes the table: this one is refused, and can read. */
        public void findHeld() {
            int code = 0;
            try {
                open("held", JNITboMessageTable.MODE_WRITE).close();
            } catch (JNITboException refused) {
                code = refused.getErrorCode();
            }
            check(code == FILE_OPEN_ERROR, "a second writer got " + code);
            open("held", JNITboMessageTable.MODE_READ).close();
        }

        /** Without the library of its own no method of this loader's classes is bound, handles or not. */
        public void findNothingLoaded() {
            try {
                open("table", JNITboMessageTable.MODE_READ);
            } catch (UnsatisfiedLinkError unbound) {
                return;
            }
            throw new AssertionError("a method of a loader without the library can be called");
        }
    }

    /** A class loader of its own with a guest in it. */
    private static final class Room {
        private final URLClassLoader loader;
        private final Object guest;

        Room(Path directory) throws Exception {
            List<URL> urls = new ArrayList<>();
            for (String entry : System.getProperty("java.class.path").split(File.pathSeparator)) {
                urls.add(Path.of(entry).toUri().toURL());
            }
            loader = new URLClassLoader(urls.toArray(new URL[0]), ClassLoader.getPlatformClassLoader());
            guest = loader.loadClass(Guest.class.getName()).getConstructor(Path.class).newInstance(directory);
        }

        /** On a thread of its own, so that nothing of the thread keeps the library. */
        void run(String method, Object... arguments) throws Exception {
            Callable<Object> call = () -> {
                for (Method candidate : guest.getClass().getMethods()) {
                    if (candidate.getName().equals(method)) {
                        return candidate.invoke(guest, arguments);
                    }
                }
                throw new AssertionError("there is no " + method);
            };
            FutureTask<Object> task = new FutureTask<>(call);
            Thread thread = new Thread(task);
            thread.setContextClassLoader(null);
            thread.start();
            task.get();
            thread.join();
        }

        WeakReference<ClassLoader> close() throws Exception {
            loader.close();
            return new WeakReference<>(loader);
        }
    }

    /** A virtual machine of its own, in whose own loader the library is never loaded. */
    static final class Container {
        private static WeakReference<ClassLoader> oneRoom(Path directory, String library) throws Exception {
            Room room = new Room(directory);
            room.run("load", library);
            room.run("work");
            Room second = new Room(directory);
            try {
                second.run("load", library);
            } catch (Exception refused) {
                System.out.println("second: " + rootOf(refused).getClass().getSimpleName());
            }
            second.run("findNothingLoaded");
            second.close();
            room.run("work");
            System.out.println("first works");
            return room.close();
        }

        private static Throwable rootOf(Throwable thrown) {
            return thrown.getCause() == null ? thrown : rootOf(thrown.getCause());
        }

        private static boolean isCollected(WeakReference<ClassLoader> loader) throws InterruptedException {
            for (int i = 0; i < 200 && loader.get() != null; ++i) {
                System.gc();
                Thread.sleep(10);
            }
            return loader.get() == null;
        }

        private static WeakReference<ClassLoader> twoRooms(Path directory, String library) throws Exception {
            Path copy = directory.resolve("libcopy.so");
            Files.copy(Path.of(library), copy);
            Room first = new Room(directory);
            Room second = new Room(directory);
            first.run("load", library);
            second.run("load", copy.toString());
            first.run("work");
            second.run("work");
            first.run("hold");
            second.run("findHeld");
            first.run("release");
            WeakReference<ClassLoader> gone = first.close();
            second.run("work");
            second.close();
            return gone;
        }

        /** The files that are still open, but the log files: each load of the library opens one, and none closes it. */
        private static List<String> heldFiles(Path directory) throws IOException {
            List<String> held = new ArrayList<>();
            try (DirectoryStream<Path> descriptors = Files.newDirectoryStream(Path.of("/proc/self/fd"))) {
                for (Path descriptor : descriptors) {
                    String file = Files.isSymbolicLink(descriptor) ? Files.readSymbolicLink(descriptor).toString() : "";
                    if (file.startsWith(directory.toString()) && !file.equals(directory.toString())
                            && !file.endsWith(".log")) {
                        held.add(file);
                    }
                }
            }
            return held;
        }

        public static void main(String[] arguments) throws Exception {
            Path directory = Path.of(arguments[0]);
            String library = System.getProperty("tabulo.nativeLibrary");
            for (int round = 0; round < ROUNDS; ++round) {
                System.out.println("collected " + isCollected(oneRoom(directory, library)));
            }
            System.out.println("held " + heldFiles(directory));
            System.out.println("collected " + isCollected(twoRooms(directory, library)));
            new Room(directory).run("load", library);
            System.out.println("done");
        }
    }

    @Test
    void theLibraryWorksInOneLoaderAtATimeAndIsLetGoWithIt() throws Exception {
        try (ChildJvm child = ChildJvm.start(directory, Container.class, directory.toString())) {
            List<String> aRound = List.of("second: UnsatisfiedLinkError", "first works", "collected true");
            List<String> expected = new ArrayList<>();
            for (int round = 0; round < ROUNDS; ++round) {
                expected.addAll(aRound);
            }
            expected.addAll(List.of("held []", "collected true", "done"));
            List<String> output = new ArrayList<>(child.finish());
            output.removeIf(line -> line.startsWith("Tabulo/C"));
            assertEquals(expected, output);
        }
    }
}
