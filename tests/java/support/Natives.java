package com.corvane.kestrova.engine.tabulo.jni;

import java.lang.invoke.MethodHandle;
import java.lang.invoke.MethodHandles;
import java.lang.reflect.Method;

/**
 * The native methods themselves, past the peers that guard them: what a host with classes of its own can pass reaches
 * the library as it is. Loads and initialises the library.
 */
final class Natives {
    static final int READ = 0;
    static final int WRITE = 1;

    private static final Class<?> TABLE = JNITboMessageTable.class;
    private static final MethodHandle OPEN = find(TABLE, "initializeNative", Object.class, int.class);
    private static final MethodHandle FREE = find(TABLE, "uninitializeNative", long.class);
    private static final MethodHandle CLOSE = find(TABLE, "closeNative", long.class);
    private static final MethodHandle DROP = find(TABLE, "dropNative", long.class);
    private static final MethodHandle WRITE_TEXTS = find(TABLE, "writeMessage", long.class, int.class, int.class,
            int.class, int.class, long.class, char.class, String.class, boolean.class, boolean.class, String.class,
            String.class, String.class, String.class, String[].class, double[].class);
    private static final MethodHandle WRITE_BYTES = find(TABLE, "writeMessage", long.class, int.class, int.class,
            int.class, int.class, long.class, char.class, String.class, boolean.class, boolean.class, String.class,
            String.class, byte[].class, int.class, int.class, byte[].class, int.class, int.class, byte[].class,
            int.class, int.class, String[].class, int[].class, long[].class, double[].class);
    private static final MethodHandle WRITE_RAW =
            find(TABLE, "writeMessage", long.class, byte[].class, int.class, int.class);
    private static final MethodHandle READ_MESSAGES =
            find(TABLE, "readMessages", long.class, int[].class, int.class, Object.class);
    private static final MethodHandle LAST_ID = find(TABLE, "getLastMessageId", long.class, int.class);
    private static final MethodHandle LAST_GOOD =
            find(TABLE, "getLastGoodMsgSeqNum", long.class, long.class, Object.class);
    private static final MethodHandle PENDING =
            find(TABLE, "getPendingMsgSeqNum", long.class, long.class, boolean.class);
    private static final MethodHandle LAST_UNIFORM = find(TABLE, "getLastUniformMessageId", long.class);

    static {
        JNITboLibLoader.load(System.getProperty("tabulo.nativeLibrary"));
        JNITboLibLoader.initLibrary();
    }

    private Natives() {
    }

    /** Does nothing but make sure that the library is loaded and initialised. */
    static void load() {
    }

    /** A call through a method handle. */
    interface Call<T> {
        T run() throws Throwable;
    }

    /** A private native method of one of the peers. */
    static MethodHandle find(Class<?> owner, String name, Class<?>... parameterTypes) {
        try {
            Method method = owner.getDeclaredMethod(name, parameterTypes);
            method.setAccessible(true);
            return MethodHandles.lookup().unreflect(method);
        } catch (ReflectiveOperationException missing) {
            throw new AssertionError(missing);
        }
    }

    static <T> T call(Call<T> call) {
        try {
            return call.run();
        } catch (RuntimeException | Error thrown) {
            throw thrown;
        } catch (Throwable checked) {
            throw new AssertionError(checked);
        }
    }

    static long open(Object provider, int mode) {
        return call(() -> (long) OPEN.invokeExact(provider, mode));
    }

    /** Ends with the handle invalid, as close() of the peer does, but saves nothing. */
    static void free(long handle) {
        call(() -> {
            FREE.invokeExact(handle);
            return null;
        });
    }

    /** Saves the bookkeeping; the handle stays valid. */
    static void close(long handle) {
        call(() -> {
            CLOSE.invokeExact(handle);
            return null;
        });
    }

    static void drop(long handle) {
        call(() -> {
            DROP.invokeExact(handle);
            return null;
        });
    }

    static void writeTexts(long handle, Message m) {
        call(() -> {
            WRITE_TEXTS.invokeExact(handle, m.uniformId, m.seqNum, m.prevSeqNum, m.connMsgId, m.timestamp,
                    m.msgTypeChar, m.msgType, m.possDup, m.outOfSequence, m.builtIn0, m.builtIn1, m.wire,
                    m.nonMetadata, m.strings, m.doubles);
            return null;
        });
    }

    static void writeBytes(long handle, Message m) {
        call(() -> {
            WRITE_BYTES.invokeExact(handle, m.uniformId, m.seqNum, m.prevSeqNum, m.connMsgId, m.timestamp,
                    m.msgTypeChar, m.msgType, m.possDup, m.outOfSequence, m.builtIn0, m.builtIn1, m.bytes1, m.offset1,
                    m.length1, m.bytes2, m.offset2, m.length2, m.bytes3, m.offset3, m.length3, m.strings, m.typeMap,
                    m.longs, m.doubles);
            return null;
        });
    }

    static void writeRaw(long handle, byte[] frame, int offset, int length) {
        call(() -> {
            WRITE_RAW.invokeExact(handle, frame, offset, length);
            return null;
        });
    }

    static void readMessages(long handle, int[] ids, int count, Object listener) {
        call(() -> {
            READ_MESSAGES.invokeExact(handle, ids, count, listener);
            return null;
        });
    }

    static int lastMessageId(long handle, int classBaseId) {
        return call(() -> (int) LAST_ID.invokeExact(handle, classBaseId));
    }

    static int lastGood(long handle, long since, Object holder) {
        return call(() -> (int) LAST_GOOD.invokeExact(handle, since, holder));
    }

    static int pending(long handle, long since, boolean last) {
        return call(() -> (int) PENDING.invokeExact(handle, since, last));
    }

    static int lastUniform(long handle) {
        return call(() -> (int) LAST_UNIFORM.invokeExact(handle));
    }
}
