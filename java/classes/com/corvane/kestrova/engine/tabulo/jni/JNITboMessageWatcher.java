package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.nio.channels.AsynchronousCloseException;
import java.nio.channels.spi.AbstractInterruptibleChannel;
import java.util.Arrays;

/**
 * Follows several message tables at once and delivers their new messages in the order of the uniform message ids.
 *
 * <p>A watch occupies the thread that starts it until a listener ends it, {@link #stop()} or {@link #close()} is
 * called on another thread, or its thread is interrupted, which leaves the thread's flag set. The tables given to a
 * watcher are best opened for it alone, for reading, beside the writer's own. While a watch runs they belong to its
 * thread: calls on them and on their iterators from other threads, {@code close()} included, throw
 * {@link IllegalStateException} instead of waiting for the watch's end, and so do closes on the watch's own thread. A
 * watch is refused when one of its tables is closed. The native object behind a watcher is freed by {@link #close()}
 * only.
 *
 * <p>A batch comes when it is full (1000 messages) and whenever nothing new was found, then also when it is empty: that
 * is where a listener can end an idle watch. The longer a watch is idle, the longer it sleeps between two passes.
 */
public final class JNITboMessageWatcher implements AutoCloseable {
    /** As a starting id: from the table's beginning. */
    public static final int FROM_BEGINNING = -1;

    /** Milliseconds; a watch whose thread has no stack left cannot tell that it has ended. */
    private static final long LONGEST_WAIT = 1000;

    private final JNITboMessageTable[] tables;
    private final TableName name;
    /** Guards what follows it. */
    private final Object state = new Object();
    private boolean isClosed;
    /** The thread of the watch that is running, null for none. */
    private Thread watching;
    /** The watch has called back: from then on a request to the native watcher reaches it. */
    private boolean hasCalledBack;
    private boolean isStopping;
    /** 0 when there is none: before the first watch behind one that was stopped from outside. */
    private long nativeHandle_;
    /** Of the watch that is running, for its thread. */
    private IKSVTboMessageListener listener;
    private CompactListener compactListener;
    private Interruption interruption = new Interruption();

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

        /**
         * Told before each batch which tables its messages come from; does nothing unless it is overridden.
         *
         * @param tableIndexes for each message the place of its table in the arguments of
         *        {@link JNITboMessageWatcher#open(JNITboMessageTable...)}, counted from 0; belongs to the listener
         */
        default void onBatchTables(int[] tableIndexes) {
        }
    }

    /** An interrupt of a watching thread, as channels take it: it stops the watch. */
    private final class Interruption extends AbstractInterruptibleChannel {
        @Override
        protected void implCloseChannel() {
            stop();
        }

        /** Also behind each batch: what can be interrupted in a listener takes the interrupts to itself. */
        void beginWatch() {
            begin();
        }

        void endWatch() {
            try {
                end(true);
            } catch (AsynchronousCloseException interrupted) {
                // The watch has ended for it, and the thread's flag is still set: that tells all.
            }
        }
    }

    private JNITboMessageWatcher(JNITboMessageTable[] tables, long handle) {
        this.tables = tables;
        nativeHandle_ = handle;
        name = TableName.ofAll(Arrays.stream(tables).map(JNITboMessageTable::name).toList());
    }

    /**
     * Makes a watcher.
     *
     * @param tables the open tables to watch; the watcher refers to them and does not own them
     * @return the watcher, to be closed by the caller
     * @throws JNITboException {@code TABLE_CLOSED_ERROR} when a table is closed; {@code OUT_OF_MEMORY_ERROR}
     */
    public static JNITboMessageWatcher open(JNITboMessageTable... tables) {
        JNITboMessageWatcher watcher = new JNITboMessageWatcher(tables.clone(), 0);
        synchronized (watcher.state) {
            watcher.makeNative();
        }
        return watcher;
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
     * @throws IllegalStateException when a watch of this watcher is running, or a watch on another thread follows one of
     *         the tables
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
     * Ends the watch that is running, from whatever thread: its start returns behind the batch that is being delivered,
     * also out of its wait between two passes, and no further batch comes. Messages that were gathered and not delivered
     * come again with the next watch, when that goes on behind the last one that was delivered. Does nothing when no
     * watch is running. An interrupt of the watching thread does the same, and leaves the thread's flag set.
     */
    public void stop() {
        synchronized (state) {
            if (watching == null) {
                return;
            }
            isStopping = true;
            if (hasCalledBack && nativeHandle_ != 0) {
                // From here on the native watcher belongs to its watch; the next start makes another one.
                long handle = nativeHandle_;
                nativeHandle_ = 0;
                uninitialize(handle);
            }
        }
    }

    /**
     * Frees the watcher; the tables stay open. A watch that is running on another thread is stopped first, and waited
     * for, however long its listener takes. On a closed watcher it does nothing.
     *
     * @throws IllegalStateException when it is called from the watch's own listener: end the watch there
     */
    @Override
    public void close() {
        boolean isInterrupted = false;
        synchronized (state) {
            if (watching == Thread.currentThread()) {
                throw new IllegalStateException("a watcher cannot be closed by its own listener");
            }
            isClosed = true;
            while (watching != null) {
                stop();
                try {
                    state.wait(LONGEST_WAIT);
                } catch (InterruptedException later) {
                    isInterrupted = true;
                }
            }
            if (nativeHandle_ != 0) {
                long handle = nativeHandle_;
                nativeHandle_ = 0;
                uninitialize(handle);
            }
        }
        if (isInterrupted) {
            Thread.currentThread().interrupt();
        }
    }

    /**
     * Says what this watcher follows.
     *
     * @return the tables, and whether the watcher is closed
     */
    @Override
    public String toString() {
        return "watcher of " + Arrays.toString(tables) + (isClosed ? ", closed" : "");
    }

    /** Called by the library, before the batch with these messages, on the thread of the watch. */
    void onBatchTables(int[] tableIndexes) {
        if (hasToStop()) {
            return;
        }
        if (listener != null) {
            listener.onBatchTables(tableIndexes);
        } else {
            compactListener.onBatchTables(tableIndexes);
        }
    }

    /** Called by the library with the batches of a watch with time stamps. */
    int onGetMessages(int count, long[] timestamps, byte[][] wireMessages, byte[][] nonMetadataFields) {
        if (hasToStop()) {
            return 1;
        }
        int answer = listener.onGetMessages(count, timestamps, wireMessages, nonMetadataFields);
        interruption.beginWatch();
        return answer;
    }

    /** Called by the library with the batches of a compact watch. */
    int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages) {
        if (hasToStop()) {
            return 1;
        }
        int answer = compactListener.onGetMessages(count, uniformIds, wireMessages);
        interruption.beginWatch();
        return answer;
    }

    private boolean hasToStop() {
        synchronized (state) {
            hasCalledBack = true;
            return isStopping;
        }
    }

    /** Under the lock: makes the native watcher. It only remembers the tables, which are kept open by each watch. */
    private void makeNative() {
        long[] handles = new long[tables.length];
        for (int i = 0; i < tables.length; ++i) {
            handles[i] = tables[i].handleForWatcher();
        }
        try {
            nativeHandle_ = initialize(handles);
        } catch (UnsatisfiedLinkError notLoaded) {
            throw JNITboLibLoader.explained(notLoaded);
        } catch (JNITboException failed) {
            throw failed.at(name);
        }
    }

    private void watch(int[] fromUniformIds, IKSVTboMessageListener plain, CompactListener compact) {
        // Made before anything is marked that would stay so where there is no memory.
        HandleGuard[] guards = new HandleGuard[tables.length];
        synchronized (state) {
            if (isClosed) {
                throw JNITboException.watcherClosed().at(name);
            }
            if (watching != null) {
                throw new IllegalStateException("a watch of this watcher is running");
            }
            watching = Thread.currentThread();
            isStopping = false;
            hasCalledBack = false;
        }
        int kept = 0;
        try {
            for (; kept < tables.length; ++kept) {
                guards[kept] = tables[kept].guard();
                guards[kept].beginWatch();
            }
            listener = plain;
            compactListener = compact;
            run(fromUniformIds, compact != null);
        } catch (JNITboException failed) {
            throw failed.at(name);
        } finally {
            // Written out: that takes no stack, where there may be none.
            while (kept > 0) {
                HandleGuard guard = guards[--kept];
                synchronized (guard) {
                    if (--guard.watches == 0) {
                        guard.watcher = null;
                    }
                }
            }
            synchronized (state) {
                watching = null;
                state.notifyAll();
            }
        }
    }

    private void run(int[] fromUniformIds, boolean isCompact) {
        long handle;
        synchronized (state) {
            if (isStopping) {
                return;
            }
            if (nativeHandle_ == 0) {
                makeNative();
            }
            handle = nativeHandle_;
        }
        interruption = new Interruption();
        try {
            interruption.beginWatch();
            startWatching(handle, tables.length, fromUniformIds, isCompact);
        } finally {
            interruption.endWatch();
        }
    }

    private static native long initialize(long[] tableHandles);

    /** Not static: the library calls onGetMessages on this object. */
    private native int startWatching(long handle, int count, int[] fromUniformIds, boolean compact);

    private static native void uninitialize(long handle);
}
