package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.MASTER_INACTIVE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.util.Arrays;
import java.util.Set;
import java.util.stream.Stream;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

/**
 * Listeners and watch callbacks of a host without our peers, that write to, drop, close or destroy the table or the
 * watcher that they are called for: the memory stays until the operation has ended, which ends without harm.
 */
class RawCallbackMisuseTest extends OnTables {
    private static final int MESSAGES = 2500;  // more than two batches
    private static final int LAST_CALL = 6;

    private long table;
    private long watcher;
    private int calls;
    private boolean isWatching;
    private boolean isTableFreed;
    private boolean isWatcherFreed;

    /** Which operation calls back. */
    enum Operation {
        READ, WATCH, COMPACT_WATCH
    }

    /** What the first call does. */
    enum Action {
        WRITE, DROP, DROP_AND_WRITE, CLOSE, DESTROY, CLOSE_AND_DESTROY, DROP_AND_DESTROY, DESTROY_THE_WATCHER,
        DESTROY_BOTH, WATCH_AGAIN, READ_AGAIN, QUERY
    }

    private void destroyTable() {
        isTableFreed = true;
        Natives.free(table);
    }

    private void destroyWatcher() {
        isWatcherFreed = true;
        WatcherNatives.uninitialize(watcher);
    }

    private int watchAgain() {
        try {
            return WatcherNatives.watchCompact(watcher, 1, new int[] {1}, (count, ids, wires) -> 1);
        } catch (JNITboException refused) {
            return refused.getErrorCode();
        }
    }

    private void act(Action action) {
        switch (action) {
            case WRITE -> writeNumbered(table, MESSAGES + 1, MESSAGES + 1100);
            case DROP -> Natives.drop(table);
            case DROP_AND_WRITE -> {
                Natives.drop(table);
                writeNumbered(table, 1, 3);
            }
            case CLOSE -> Natives.close(table);
            case DESTROY -> destroyTable();
            case CLOSE_AND_DESTROY -> {
                Natives.close(table);
                destroyTable();
            }
            case DROP_AND_DESTROY -> {
                Natives.drop(table);
                destroyTable();
            }
            case DESTROY_THE_WATCHER -> destroyWatcher();
            case DESTROY_BOTH -> {
                destroyTable();
                destroyWatcher();
            }
            case WATCH_AGAIN -> assertEquals(isWatching ? WRONG_PARAMETER_ERROR : NO_ERROR, watchAgain());
            case READ_AGAIN -> assertEquals(MESSAGES, read(table, range(1, MESSAGES)).timestamps().size());
            default -> {
                long iterator = QueryNatives.open(table, new RawConditions());
                assertTrue(QueryNatives.next(iterator));
                QueryNatives.close(iterator);
            }
        }
    }

    /** Acts at the first call; ends what would go on for ever at the last one. */
    private int called(Action action) {
        if (++calls == 1) {
            act(action);
        }
        return calls >= LAST_CALL ? 1 : 0;
    }

    private int run(Operation operation, Action action) {
        IKSVTboMessageListener listener = (count, timestamps, wires, others) -> called(action);
        try {
            switch (operation) {
                case READ -> Natives.readMessages(table, range(1, MESSAGES), -1, listener);
                case WATCH -> WatcherNatives.watch(watcher, 1, new int[] {1},
                        new RecordingListener(call -> called(action)));
                default -> WatcherNatives.watchCompact(watcher, 1, new int[] {1},
                        (count, ids, wires) -> called(action));
            }
            return NO_ERROR;
        } catch (JNITboException error) {
            return error.getErrorCode();
        }
    }

    static Stream<Arguments> everythingInEveryOperation() {
        return Arrays.stream(Operation.values())
                .flatMap(operation -> Arrays.stream(Action.values()).map(action -> Arguments.of(operation, action)));
    }

    @ParameterizedTest
    @MethodSource("everythingInEveryOperation")
    void theOperationEndsWithoutHarmAndTheTableCanBeUsedAgain(Operation operation, Action action) {
        table = Natives.open(provider(), Natives.WRITE);
        writeNumbered(table, 1, MESSAGES);
        watcher = WatcherNatives.initialize(table);
        isWatching = operation != Operation.READ;
        int code = run(operation, action);
        boolean mayBeInactive = isTableFreed;
        assertTrue(code == NO_ERROR || mayBeInactive && code == MASTER_INACTIVE_ERROR,
                () -> "the operation ended with " + code);
        assertTrue(calls > 0, "the callback was never called");
        if (!isWatcherFreed) {
            WatcherNatives.uninitialize(watcher);
        }
        if (!isTableFreed) {
            Natives.close(table);
            Natives.free(table);
        }
        Set<Action> emptying = Set.of(Action.DROP, Action.DROP_AND_DESTROY);
        int expected = emptying.contains(action) ? 0 : action == Action.DROP_AND_WRITE ? 3
                : action == Action.WRITE ? MESSAGES + 1100 : MESSAGES;
        long again = openForWriting();
        assertEquals(expected, read(again, range(1, 2 * MESSAGES)).timestamps().size(),
                "messages in the table afterwards");
        writeNumbered(again, 2 * MESSAGES, 2 * MESSAGES);
        assertEquals(2 * MESSAGES, Natives.lastUniform(again));
    }
}
