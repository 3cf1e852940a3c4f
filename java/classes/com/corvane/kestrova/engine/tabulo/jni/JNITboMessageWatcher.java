package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.util.concurrent.atomic.AtomicBoolean;

/**
 * Follows several message tables at once and delivers their new messages in the order of the uniform message ids.
 *
 * <p>A watch occupies the thread that starts it until a listener ends it. The tables given to a watcher are best
 * opened for it alone, for reading, beside the writer's own; no other thread uses them while a watch runs. They must
 * stay open: their close is refused while a watch runs on them, and a watch is refused when one of them is closed.
 * The native object behind a watcher is freed by {@link #close()} only; close it before its tables.
 *
 * <p>A batch comes when it is full (1000 messages) and whenever nothing new was found, then also when it is empty: that
 * is where a listener can end an idle watch. The longer a watch is idle, the longer it sleeps between two passes.
 */
public final class JNITboMessageWatcher implements AutoCloseable {
    /** As a starting id: from the table's beginning. */
    public static final int FROM_BEGINNING = -1;

    private final HandleGuard guard = new HandleGuard(JNITboException::watcherClosed);
    private final AtomicBoolean watching = new AtomicBoolean();
    private final JNITboMessageTable[] tables;
    private long nativeHandle_;
    private IKSVTboMessageListener listener;
    private CompactListener compactListener;

    /** Receives watched messages with their uniform message ids instead of their time stamps. */
    @FunctionalInterface
    public interface CompactListener {
        /**
         * Takes one batch. All arrays have exactly {@code count} elements and belong to the listener.
         *
         * @param count number of messages in the batch, 0 to 1000
         * @param uniformIds uniform message id of each message
         * @param wireMessages wire message of each message without the ending NUL, null where none was stored
         * @return 0 to go on; any other value ends the watch
         */
        int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages);
    }

    private JNITboMessageWatcher(JNITboMessageTable[] tables, long handle) {
        this.tables = tables;
        nativeHandle_ = handle;
    }

    /**
     * Makes a watcher.
     *
     * @param tables the open tables to watch; the watcher refers to them and does not own them
     * @return the watcher, to be closed by the caller
     * @throws JNITboException {@code TABLE_CLOSED_ERROR} when a table is closed; {@code OUT_OF_MEMORY_ERROR}
     */
    public static JNITboMessageWatcher open(JNITboMessageTable... tables) {
        JNITboMessageTable[] watched = tables.clone();
        long[] handles = enterAll(watched);
        try {
            return new JNITboMessageWatcher(watched, initialize(handles));
        } finally {
            leaveFirst(watched, watched.length);
        }
    }

    /**
     * Watches on the calling thread until the listener ends it. The batches carry the messages' time stamps, wire
     * messages and non-metadata fields; a listener that needs their uniform message ids, for example to go on from
     * there after a restart, takes {@link #startWatchingCompact(int[], CompactListener)}.
     *
     * @param fromUniformIds for each table the uniform message id from which on messages are delivered, or
     *        {@link #FROM_BEGINNING}
     * @param receiver takes the batches
     * @throws JNITboException {@code TABLE_CLOSED_ERROR} when a table is closed; {@code NULL_POINTER_ERROR} when the
     *         watcher is; {@code INDEX_OUT_OF_BOUNDS_ERROR} when there are fewer ids than tables; {@code JNI_ERROR}
     *         when the listener throws, which is printed first; {@code MASTER_INACTIVE_ERROR} when a table's file is
     *         not open any more; {@code CONSISTENCY_ERROR} or {@code HEADER_CORRUPTED_ERROR} when it is damaged;
     *         {@code FILE_READ_ERROR}
     * @throws IllegalStateException when a watch of this watcher is running
     */
    public void startWatching(int[] fromUniformIds, IKSVTboMessageListener receiver) {
        watch(fromUniformIds, receiver, null);
    }

    /**
     * Watches on the calling thread until the listener ends it. The batches carry the messages' uniform message ids and
     * wire messages.
     *
     * @param fromUniformIds for each table the uniform message id from which on messages are delivered, or
     *        {@link #FROM_BEGINNING}
     * @param receiver takes the batches
     * @throws JNITboException as {@link #startWatching(int[], IKSVTboMessageListener)} does
     * @throws IllegalStateException when a watch of this watcher is running
     */
    public void startWatchingCompact(int[] fromUniformIds, CompactListener receiver) {
        watch(fromUniformIds, null, receiver);
    }

    /**
     * Frees the watcher; the tables stay open. On a closed watcher it does nothing.
     *
     * @throws IllegalStateException when a watch is running: end it from its listener
     */
    @Override
    public void close() {
        if (guard.shut()) {
            long handle = nativeHandle_;
            nativeHandle_ = 0;
            uninitialize(handle);
        }
    }

    /** Called by the library with the batches of a watch with time stamps. */
    int onGetMessages(int count, long[] timestamps, byte[][] wireMessages, byte[][] nonMetadataFields) {
        return listener.onGetMessages(count, timestamps, wireMessages, nonMetadataFields);
    }

    /** Called by the library with the batches of a compact watch. */
    int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages) {
        return compactListener.onGetMessages(count, uniformIds, wireMessages);
    }

    private void watch(int[] fromUniformIds, IKSVTboMessageListener plain, CompactListener compact) {
        guard.enter();
        try {
            if (!watching.compareAndSet(false, true)) {
                throw new IllegalStateException("a watch of this watcher is running");
            }
            try {
                enterAll(tables);
                try {
                    listener = plain;
                    compactListener = compact;
                    startWatching(nativeHandle_, tables.length, fromUniformIds, compact != null);
                } finally {
                    leaveFirst(tables, tables.length);
                }
            } finally {
                watching.set(false);
            }
        } finally {
            guard.leave();
        }
    }

    /** Keeps all tables open, or none when one is closed; gives their handles. */
    private static long[] enterAll(JNITboMessageTable[] tables) {
        long[] handles = new long[tables.length];
        int entered = 0;
        try {
            while (entered < tables.length) {
                handles[entered] = tables[entered].enter();
                ++entered;
            }
            return handles;
        } finally {
            if (entered < tables.length) {
                leaveFirst(tables, entered);
            }
        }
    }

    private static void leaveFirst(JNITboMessageTable[] tables, int count) {
        for (int i = 0; i < count; ++i) {
            tables[i].leave();
        }
    }

    private static native long initialize(long[] tableHandles);

    /** Not static: the library calls onGetMessages on this object. */
    private native int startWatching(long handle, int count, int[] fromUniformIds, boolean compact);

    private static native void uninitialize(long handle);
}
