package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.concurrent.CancellationException;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.CompletionException;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.Executor;

/**
 * Follows several tables at once, also while engines write them, and hands over every message in the order of the
 * uniform message ids, each with its store.
 *
 * <pre>
 * Watch watch = Watch.of(day1, day2).from(WatchState.load(file)).start(executor, (store, message) -&gt; show(message));
 * ...
 * watch.close();
 * watch.state().save(file);
 * </pre>
 *
 * <p>A watch has handles of its own on the tables' files: the stores may be used, and closed, meanwhile. It occupies
 * one thread of its executor until it ends. A message is delivered as soon as it is stored, where the system reports
 * that; where it does not, as for files on a network, the longer nothing is stored, the longer the watch sleeps between
 * two looks (docs/watcher.md). A stop does not wait for that. Any thread may call the methods of a watch.
 */
public final class Watch implements AutoCloseable {
    private final List<FollowedTable> tables;
    private final JNITboMessageWatcher watcher;
    private final Listener listener;
    private final int[] starts;
    private final CompletableFuture<Void> done = new CompletableFuture<>();
    private final Map<String, Integer> lastIds;
    private int[] tableIndexes = {};
    private Throwable failure;
    private volatile boolean isStopping;
    private volatile Thread thread;

    /** Takes the messages of a watch, on its thread and one at a time. */
    @FunctionalInterface
    public interface Listener {
        /**
         * Takes a message.
         *
         * @param store the store that the watch was begun with whose table the message stands in
         * @param message the message
         * @throws Exception when the watch is to end; {@link Watch#await()} then throws it as a cause, and the message
         *         counts as not delivered
         */
        void onMessage(MessageStore store, StoredMessage message) throws Exception;

        /**
         * Told behind the messages that came together, 1000 at most, and after each look that found none, which is
         * where an idle watch can be ended; does nothing unless it is overridden.
         *
         * @param watch the watch, whose {@link Watch#state()} includes these messages
         * @param count how many of them were delivered
         * @throws Exception when the watch is to end; {@link Watch#await()} then throws it as a cause
         */
        default void onBatchEnd(Watch watch, int count) throws Exception {
        }
    }

    /** Says what a watch follows and from where on; used by one thread. */
    public static final class Builder {
        private final List<MessageStore> stores;
        private WatchState state = WatchState.none();
        private int first = JNITboMessageWatcher.FROM_BEGINNING;

        private Builder(List<MessageStore> stores) {
            this.stores = stores;
        }

        /**
         * Begins with a uniform message id, in all tables; without this a watch begins at their beginnings.
         *
         * @param uniformId the lowest id that is delivered; for the messages to come, one above the last that is stored
         * @return this builder
         * @throws IllegalArgumentException when it is below 1
         */
        public Builder fromId(int uniformId) {
            if (uniformId < 1) {
                throw new IllegalArgumentException("a uniform message id is at least 1, not " + uniformId);
            }
            first = uniformId;
            return this;
        }

        /**
         * Begins behind what an earlier watch has delivered; in tables that it did not follow, where it begins
         * otherwise.
         *
         * @param saved the state of that watch
         * @return this builder
         */
        public Builder from(WatchState saved) {
            state = Objects.requireNonNull(saved, "saved");
            return this;
        }

        /**
         * Begins the watch.
         *
         * @param executor runs it, on one thread until its end
         * @param listener takes the messages
         * @return the watch, to be closed by the caller
         * @throws TabuloException when a table cannot be opened for reading
         * @throws java.util.concurrent.RejectedExecutionException when the executor does not take it
         */
        public Watch start(Executor executor, Listener listener) {
            Watch watch = new Watch(stores, state, first, Objects.requireNonNull(listener, "listener"));
            try {
                executor.execute(watch::run);
            } catch (RuntimeException refused) {
                watch.free();
                throw refused;
            }
            return watch;
        }
    }

    private Watch(List<MessageStore> stores, WatchState state, int first, Listener listener) {
        this.listener = listener;
        lastIds = new HashMap<>(state.lastIds());
        tables = new ArrayList<>();
        starts = new int[stores.size()];
        JNITboMessageWatcher opened = null;
        try {
            for (MessageStore store : stores) {
                Integer last = lastIds.get(store.name());
                starts[tables.size()] = last == null ? first : Math.max(last, last + 1);
                tables.add(new FollowedTable(store, starts[tables.size()]));
            }
            opened = JNITboMessageWatcher.open(
                    tables.stream().map(FollowedTable::table).toArray(JNITboMessageTable[]::new));
        } catch (JNITboException refused) {
            throw TabuloException.of(refused, null);
        } finally {
            if (opened == null) {
                tables.forEach(FollowedTable::close);
            }
        }
        watcher = opened;
    }

    /**
     * Begins a watch of some tables.
     *
     * @param stores the tables, by stores that are open for reading or writing; at least one, and no two of one name
     * @return a builder
     * @throws IllegalArgumentException when there is none, or two tables have one name
     */
    public static Builder of(MessageStore... stores) {
        List<MessageStore> given = List.of(stores);
        if (given.isEmpty() || given.stream().map(MessageStore::name).distinct().count() < given.size()) {
            throw new IllegalArgumentException("a watch follows tables of different names, at least one: " + given);
        }
        return new Builder(given);
    }

    /**
     * Ends the watch, and does not wait for its end: behind the message that is being delivered no other one comes. It
     * may be called from the listener.
     */
    public void stop() {
        isStopping = true;
        watcher.stop();
    }

    /**
     * Waits until the watch has ended: for {@link #stop()} elsewhere, the listener, or a failure.
     *
     * @throws InterruptedException when the waiting thread is interrupted; the watch goes on
     * @throws TabuloException when a table cannot be read any more
     * @throws CompletionException when the listener threw, with what it threw as the cause
     */
    public void await() throws InterruptedException {
        try {
            done.get();
        } catch (ExecutionException failed) {
            if (failed.getCause() instanceof TabuloException tabulo) {
                throw tabulo;
            }
            throw new CompletionException(failed.getCause());
        } catch (CancellationException impossible) {
            throw new IllegalStateException(impossible);
        }
    }

    /**
     * Whether the watch has ended.
     *
     * @return true from when its last message was delivered and its files were closed
     */
    public boolean isDone() {
        return done.isDone();
    }

    /**
     * How far the watch has come.
     *
     * @return the ids of the last messages whose delivery has returned, and those that it began with
     */
    public WatchState state() {
        synchronized (lastIds) {
            return new WatchState(lastIds);
        }
    }

    /**
     * Ends the watch and waits for its end, however long the listener takes for the message that it has; called by the
     * listener it does not wait. How the watch has ended, {@link #await()} tells.
     */
    @Override
    public void close() {
        stop();
        if (Thread.currentThread() != thread) {
            done.exceptionally(ended -> null).join();
        }
    }

    private void run() {
        thread = Thread.currentThread();
        try {
            if (!isStopping) {
                watcher.startWatchingCompact(starts, new Batches());
            }
        } catch (JNITboException failed) {
            failure = failure == null ? TabuloException.of(failed, null) : failure;
        } catch (RuntimeException | Error failed) {
            failure = failure == null ? failed : failure;
        } finally {
            thread = null;
            free();
            if (failure == null) {
                done.complete(null);
            } else {
                done.completeExceptionally(failure);
            }
        }
    }

    private void free() {
        watcher.close();
        tables.forEach(FollowedTable::close);
    }

    /** What the watcher hands over. */
    private final class Batches implements JNITboMessageWatcher.CompactListener {
        @Override
        public void onBatchTables(int[] indexes) {
            tableIndexes = indexes;
        }

        @Override
        public int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages) {
            try {
                int taken = 0;
                for (; taken < count && !isStopping; ++taken) {
                    deliver(tables.get(tableIndexes[taken]), uniformIds[taken]);
                }
                listener.onBatchEnd(Watch.this, taken);
            } catch (Exception | Error thrown) {
                // The library would print it, and give its own error in its place.
                failure = thrown;
                return 1;
            }
            return isStopping ? 1 : 0;
        }
    }

    private void deliver(FollowedTable table, int uniformId) throws Exception {
        listener.onMessage(table.store(), table.message(uniformId));
        synchronized (lastIds) {
            lastIds.put(table.store().name(), uniformId);
        }
    }
}
