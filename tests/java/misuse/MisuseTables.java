package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.function.LongConsumer;
import java.util.function.Supplier;

/**
 * The native objects on which entry points are called with hostile values, and the values for each entry point: handles
 * of live objects and 0 first, then what HostileValues has for the parameters' types.
 */
final class MisuseTables {
    static final int HELD_MESSAGES = 3;
    static final int FIELDS = 2;
    /** What an iterator finds at an index when it is on a message: its strings and its numbers. */
    static final int STRING_SLOTS = 4 + FIELDS + 1;
    static final int NUMERIC_SLOTS = FIELDS + 7;

    private final Path directory;
    private final List<Long> tables = new ArrayList<>();
    private final List<Long> sessions = new ArrayList<>();
    private final List<Long> iterators = new ArrayList<>();
    private final List<Long> watchers = new ArrayList<>();
    private final List<Long> dropped = new ArrayList<>();
    private int names;

    /** Takes all messages of the stored overloads; RAW takes encoded ones, HELD is never written. */
    final long target;
    final long raw;
    private final long targetReader;
    private final long rawReader;
    private final long held;
    private final long heldReader;
    private final long session;
    private final long sessionReader;

    MisuseTables(Path directory) {
        this.directory = directory;
        target = table(fielded("target"), Natives.WRITE);
        targetReader = table(fielded("target"), Natives.READ);
        raw = table(new Provider(directory).named("raw"), Natives.WRITE);
        rawReader = table(new Provider(directory).named("raw"), Natives.READ);
        held = table(fielded("held"), Natives.WRITE);
        for (int i = 1; i <= HELD_MESSAGES; ++i) {
            Message message = Message.numbered(i);
            message.strings = new String[FIELDS];
            Natives.writeTexts(held, message);
        }
        heldReader = table(fielded("held"), Natives.READ);
        session = session("session", Natives.WRITE);
        session("becoming a writer", Natives.WRITE);
        SessionNatives.free(sessions.remove(1));
        sessionReader = session("becoming a writer", Natives.READ);
    }

    Provider fielded(String name) {
        return new Provider(directory).named(name).strings("s0", "s1").numerics("n0", "n1");
    }

    private long table(Provider provider, int mode) {
        long handle = Natives.open(provider, mode);
        tables.add(handle);
        return handle;
    }

    private long session(String name, int mode) {
        long handle = SessionNatives.open(new Provider(directory).named(name), mode);
        sessions.add(handle);
        return handle;
    }

    private long iterator(int steps) {
        long handle = QueryNatives.open(held, new RawConditions());
        iterators.add(handle);
        for (int i = 0; i < steps; ++i) {
            QueryNatives.next(handle);
        }
        return handle;
    }

    private long watcher(long... handles) {
        long handle = WatcherNatives.initialize(handles);
        watchers.add(handle);
        return handle;
    }

    /** A configuration of a table that there is not yet. */
    private Provider fresh() {
        return new Provider(directory).named("fresh" + names++);
    }

    private long toBeDropped() {
        long handle = Natives.open(fresh(), Natives.WRITE);
        dropped.add(handle);
        return handle;
    }

    /** Frees and removes the tables that were made for single calls. */
    void removeFresh() throws IOException {
        dropped.forEach(Natives::free);
        dropped.clear();
        for (; names > 0; --names) {
            Files.deleteIfExists(directory.resolve("fresh" + (names - 1)));
        }
    }

    void free() {
        watchers.forEach(WatcherNatives::uninitialize);
        iterators.forEach(QueryNatives::close);
        tables.forEach(Natives::free);
        sessions.forEach(SessionNatives::free);
    }

    private static Argument zero(int code) {
        return Argument.object("handle 0", code, () -> 0L);
    }

    private static Argument handle(String name, long value) {
        return Argument.object(name, 0, () -> value);
    }

    private static Argument fresh(String name, Supplier<Long> make) {
        return Argument.object(name, 0, make);
    }

    private List<Argument> messageTables(String method, int parameterCount) {
        return switch (method) {
            case "uninitializeNative" -> List.of(zero(0),
                    fresh("a table", () -> Natives.open(fresh(), Natives.WRITE)));
            case "writeMessage" -> parameterCount == 4
                    ? List.of(handle("a writer", raw), handle("a reader", rawReader).withCode(READ_ONLY_ERROR),
                            zero(TABLE_CLOSED_ERROR))
                    : List.of(handle("a writer", target), handle("a reader", targetReader).withCode(READ_ONLY_ERROR),
                            zero(TABLE_CLOSED_ERROR));
            case "dropNative" -> List.of(fresh("a table", this::toBeDropped),
                    handle("a reader", heldReader).withCode(READ_ONLY_ERROR), zero(TABLE_CLOSED_ERROR));
            default -> List.of(handle("a writer", held), handle("a reader", heldReader), zero(TABLE_CLOSED_ERROR));
        };
    }

    private List<Argument> sessionTables(String method) {
        return method.equals("uninitializeNative")
                ? List.of(zero(0), fresh("a table", () -> SessionNatives.open(fresh(), Natives.WRITE)))
                : List.of(handle("a writer", session), handle("a reader", sessionReader), zero(TABLE_CLOSED_ERROR));
    }

    private List<Argument> iterators(String method) {
        if (method.equals("close")) {
            return List.of(fresh("an iterator", () -> QueryNatives.open(held, new RawConditions())),
                    zero(ITERATOR_CLOSED_ERROR));
        }
        return List.of(handle("an iterator on a message", iterator(1)), handle("a fresh iterator", iterator(0)),
                handle("an iterator at its end", iterator(HELD_MESSAGES + 1)), zero(ITERATOR_CLOSED_ERROR));
    }

    private List<Argument> watchers(String method) {
        return method.equals("uninitialize")
                ? List.of(zero(0), fresh("a watcher", () -> WatcherNatives.initialize(heldReader)))
                : List.of(handle("a watcher", watcher(heldReader)), handle("a watcher of nothing", watcher()),
                        zero(NULL_POINTER_ERROR));
    }

    private List<Argument> handles(EntryPoint entryPoint) {
        String method = entryPoint.method().getName();
        return switch (entryPoint.method().getDeclaringClass().getSimpleName()) {
            case "JNITboMessageTable" -> messageTables(method, entryPoint.parameterTypes().size());
            case "JNITboSessionInfoTable" -> sessionTables(method);
            case "JNITboMessageTableIterator" -> iterators(method);
            case "JNITboMessageWatcher" -> watchers(method);
            default -> throw new AssertionError(entryPoint + " takes no handle");
        };
    }

    /** Offsets and lengths: the first fits every array. */
    private static List<Argument> ranges(int... more) {
        List<Argument> all = new ArrayList<>();
        for (int value : new int[] {0, 1, -1, 99, 100, 101, 1000, Integer.MAX_VALUE, Integer.MAX_VALUE - 1,
            Integer.MIN_VALUE}) {
            all.add(Argument.of(value));
        }
        for (int value : more) {
            all.add(Argument.of(value));
        }
        return all;
    }

    static byte[] frame() {
        return StoredMessage.frame(7, 3, 5, 99, "AE", "zero".getBytes(), null, "wire".getBytes(), null).array();
    }

    private static List<Argument> framesAnd(List<Argument> bytes) {
        List<Argument> all = new ArrayList<>();
        byte[] padded = new byte[150];
        System.arraycopy(frame(), 0, padded, 0, frame().length);
        all.add(Argument.of("a frame", padded));
        all.addAll(bytes);
        return all;
    }

    private List<Argument> objects(EntryPoint entryPoint) {
        return switch (entryPoint.method().getName()) {
            case "initializeNative" -> HostileValues.providers(this::fresh);
            case "readMessages" -> HostileValues.listeners();
            case "getMessages" -> HostileValues.conditions();
            case "getLastGoodMsgSeqNum" -> HostileValues.holders();
            case "setLogFacility" -> HostileValues.facilities();
            default -> throw new AssertionError("no objects are known for " + entryPoint);
        };
    }

    /** For an array of table handles. */
    private List<Argument> handleArrays() {
        return List.of(Argument.of("{a table}", new long[] {heldReader}), Argument.of("no tables", new long[0]),
                Argument.of("a table twice", new long[] {heldReader, heldReader}),
                Argument.of("null", null).withCode(JNI_ERROR),
                Argument.of("{0}", new long[1]).withCode(TABLE_CLOSED_ERROR),
                Argument.of("a table and 0", new long[] {heldReader, 0}).withCode(TABLE_CLOSED_ERROR),
                Argument.of("1000 times 0", new long[1000]).withCode(TABLE_CLOSED_ERROR));
    }

    private static List<Argument> swapped(List<Argument> values, int first) {
        List<Argument> all = new ArrayList<>(values);
        all.add(0, all.remove(first));
        return all;
    }

    /** The values for one parameter of an entry point. */
    List<Argument> valuesFor(EntryPoint entryPoint, int parameter) {
        List<Class<?>> types = entryPoint.parameterTypes();
        Class<?> type = types.get(parameter);
        boolean isWrite = entryPoint.method().getName().equals("writeMessage");
        if (type == long.class && parameter == 0) {
            return handles(entryPoint);
        }
        if (type == Object.class) {
            return objects(entryPoint);
        }
        if (type == long[].class && entryPoint.method().getName().equals("initialize")) {
            return handleArrays();
        }
        if (isWrite && types.size() == 4 && type == byte[].class) {
            return framesAnd(HostileValues.of(type));
        }
        if (isWrite && types.size() == 4 && parameter == 3) {
            return swapped(ranges(frame().length, frame().length - 1, 150), 10);
        }
        if (isWrite && types.size() == 25 && parameter > 12 && type == int.class) {
            return ranges();
        }
        return HostileValues.of(type);
    }

    /** Frees what a call returned, when that is a handle. */
    static void release(EntryPoint entryPoint, Object result) {
        LongConsumer release = switch (entryPoint.key()) {
            case "JNITboMessageTable.initializeNative/2" -> Natives::free;
            case "JNITboSessionInfoTable.initializeNative/2" -> SessionNatives::free;
            case "JNITboMessageTable.getMessages/2" -> QueryNatives::close;
            case "JNITboMessageWatcher.initialize/1" -> WatcherNatives::uninitialize;
            default -> null;
        };
        if (release != null) {
            release.accept((long) result);
        }
    }
}
