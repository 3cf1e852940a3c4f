package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.MASTER_INACTIVE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.util.log.ILogger;
import java.util.Arrays;
import java.util.HashSet;
import java.util.Set;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
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

    /** Who is called by an operation besides listeners. */
    enum Caller {
        CONDITIONS, HOLDER, LOGGER_OF_A_LOOKUP, LOGGER_OF_A_DROP, PROVIDER
    }

    private RawConditions conditionsThat(Action action) {
        return new RawConditions() {
            @Override
            public Boolean getIsPossDupFlag() {
                called(action);
                return null;
            }
        };
    }

    private Object holderThat(Action action) {
        class Holder {
            public void setValue(long timestamp) {
                called(action);
            }
        }
        return new Holder();
    }

    private Provider providerThat(Action action) {
        return new Provider(directory) {
            @Override
            public String[] getStringFieldsNames() {
                called(action);
                return null;
            }
        }.named("another");
    }

    private void install(Action action) {
        JNITboLibLoader.setLogFacility(new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return (argument, text) -> called(action);
            }
        });
    }

    private int run(Caller caller, Action action) {
        try {
            switch (caller) {
                case CONDITIONS -> {
                    long iterator = QueryNatives.open(table, conditionsThat(action));
                    assertFalse(isTableFreed, "a query of a table that is gone");
                    while (QueryNatives.next(iterator)) {
                        Thread.onSpinWait();
                    }
                    QueryNatives.close(iterator);
                }
                case HOLDER -> Natives.lastGood(table, 0, holderThat(action));
                case LOGGER_OF_A_LOOKUP -> {
                    install(action);
                    Natives.lastMessageId(table, -1);
                }
                case LOGGER_OF_A_DROP -> {
                    install(action);
                    Natives.drop(table);
                }
                default -> Natives.free(Natives.open(providerThat(action), Natives.WRITE));
            }
            return NO_ERROR;
        } catch (JNITboException error) {
            return error.getErrorCode();
        } finally {
            JNITboLibLoader.uninitLibrary();
        }
    }

    static Stream<Arguments> everythingByEveryCaller() {
        return Arrays.stream(Caller.values())
                .flatMap(caller -> Arrays.stream(Action.values()).map(action -> Arguments.of(caller, action)));
    }

    @ParameterizedTest
    @MethodSource("everythingByEveryCaller")
    void whoeverIsCalledMayDoAnythingToTheTable(Caller caller, Action action) {
        table = Natives.open(provider(), Natives.WRITE);
        writeNumbered(table, 1, MESSAGES);
        watcher = WatcherNatives.initialize(table);
        int code = run(caller, action);
        Set<Integer> clean = new HashSet<>(Set.of(NO_ERROR, MASTER_INACTIVE_ERROR));
        if (caller == Caller.LOGGER_OF_A_LOOKUP) {
            clean.add(JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR);  // what the warning is about
        }
        assertTrue(clean.contains(code) || caller == Caller.LOGGER_OF_A_DROP, () -> "the operation ended with " + code);
        assertTrue(calls > 0, "the callback was never called");
        if (caller == Caller.CONDITIONS && isTableFreed) {
            assertEquals(MASTER_INACTIVE_ERROR, code);
        }
        if (!isWatcherFreed) {
            WatcherNatives.uninitialize(watcher);
        }
        if (!isTableFreed) {
            Natives.free(table);
        }
        long again = openForWriting();
        writeNumbered(again, 2 * MESSAGES, 2 * MESSAGES);
        assertEquals(2 * MESSAGES, Natives.lastUniform(again));
    }

    @Test
    void aLoggerMayDestroyTheSessionTableThatLogs() {
        for (boolean isWriting : new boolean[] {true, false}) {
            long made = SessionNatives.open(provider().named("session"), Natives.WRITE);
            SessionNatives.free(made);
            long session = SessionNatives.open(provider().named("session"), isWriting ? Natives.READ : Natives.WRITE);
            int[] destroyed = new int[1];
            JNITboLibLoader.setLogFacility(new RecordingFacility() {
                @Override
                ILogger logger(String level) {
                    return (argument, text) -> {
                        if (++destroyed[0] == 1) {
                            SessionNatives.free(session);
                        }
                    };
                }
            });
            try {
                if (isWriting) {
                    SessionNatives.write(session, 1, new int[] {1}, new long[] {5});  // becomes the writer
                } else {
                    SessionNatives.drop(session);
                }
            } catch (JNITboException ended) {
                // With whatever code: the table is gone.
            }
            JNITboLibLoader.uninitLibrary();
            if (destroyed[0] == 0) {
                SessionNatives.free(session);  // nothing was logged
            }
        }
    }
}
