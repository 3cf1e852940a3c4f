package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.lang.invoke.MethodHandle;
import java.lang.reflect.Constructor;
import java.lang.reflect.Field;

/** The watcher's native methods themselves, past the peer that guards them. */
final class WatcherNatives {
    private static final Class<?> WATCHER = JNITboMessageWatcher.class;
    private static final MethodHandle INITIALIZE = Natives.find(WATCHER, "initialize", long[].class);
    private static final MethodHandle START = Natives.find(WATCHER, "startWatching", long.class, int.class,
            int[].class, boolean.class);
    private static final MethodHandle UNINITIALIZE = Natives.find(WATCHER, "uninitialize", long.class);

    private WatcherNatives() {
    }

    static long initialize(long... tableHandles) {
        return Natives.call(() -> (long) INITIALIZE.invokeExact(tableHandles));
    }

    static void uninitialize(long handle) {
        Natives.call(() -> {
            UNINITIALIZE.invokeExact(handle);
            return null;
        });
    }

    /** Watches with the listener's batches of time stamps. */
    static int watch(long handle, int count, int[] ids, RecordingListener listener) {
        JNITboMessageWatcher self = peer(listener, null);
        return Natives.call(() -> (int) START.invokeExact(self, handle, count, ids, false));
    }

    /** Watches with the listener's batches of uniform ids. */
    static int watchCompact(long handle, int count, int[] ids, JNITboMessageWatcher.CompactListener listener) {
        JNITboMessageWatcher self = peer(null, listener);
        return Natives.call(() -> (int) START.invokeExact(self, handle, count, ids, true));
    }

    /** A peer of no native object that hands its batches to listeners, to one for each form. */
    static JNITboMessageWatcher peer(IKSVTboMessageListener plain, JNITboMessageWatcher.CompactListener compact) {
        try {
            Constructor<?> constructor = WATCHER.getDeclaredConstructor(JNITboMessageTable[].class, long.class);
            constructor.setAccessible(true);
            Object made = constructor.newInstance(new JNITboMessageTable[0], 0L);
            set(made, "listener", plain);
            set(made, "compactListener", compact);
            return (JNITboMessageWatcher) made;
        } catch (ReflectiveOperationException missing) {
            throw new AssertionError(missing);
        }
    }

    private static void set(Object peer, String field, Object value) throws ReflectiveOperationException {
        Field target = WATCHER.getDeclaredField(field);
        target.setAccessible(true);
        target.set(peer, value);
    }
}
