package com.corvane.kestrova.engine.tabulo.jni;

import java.lang.invoke.MethodHandle;

/** The native methods of session info tables, past the peer that guards them. Loads and initialises the library. */
final class SessionNatives {
    private static final Class<?> TABLE = JNITboSessionInfoTable.class;
    private static final MethodHandle OPEN = Natives.find(TABLE, "initializeNative", Object.class, int.class);
    private static final MethodHandle FREE = Natives.find(TABLE, "uninitializeNative", long.class);
    private static final MethodHandle DROP = Natives.find(TABLE, "dropNative", long.class);
    private static final MethodHandle WRITE =
            Natives.find(TABLE, "writeFieldsNative", long.class, int.class, int[].class, long[].class);
    private static final MethodHandle READ =
            Natives.find(TABLE, "readFieldsNative", long.class, int.class, int[].class, long[].class);

    private SessionNatives() {
    }

    static long open(Object provider, int mode) {
        return Natives.call(() -> (long) OPEN.invokeExact(provider, mode));
    }

    static void free(long handle) {
        Natives.call(() -> {
            FREE.invokeExact(handle);
            return null;
        });
    }

    static void drop(long handle) {
        Natives.call(() -> {
            DROP.invokeExact(handle);
            return null;
        });
    }

    static void write(long handle, int count, int[] tags, long[] values) {
        Natives.call(() -> {
            WRITE.invokeExact(handle, count, tags, values);
            return null;
        });
    }

    static void read(long handle, int count, int[] tags, long[] values) {
        Natives.call(() -> {
            READ.invokeExact(handle, count, tags, values);
            return null;
        });
    }

    /** Sets one tag. */
    static void write(long handle, int tag, long value) {
        write(handle, 1, new int[] {tag}, new long[] {value});
    }

    /** The values of the tags, in their order. */
    static long[] read(long handle, int... tags) {
        long[] values = new long[tags.length];
        read(handle, tags.length, tags, values);
        return values;
    }
}
