package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.util.log.ILogger;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.Arguments;
import org.junit.jupiter.params.provider.MethodSource;

/**
 * Everything that a callback could do to the objects that it is called for, from every kind of callback, through the
 * peers: a close or a drop of what is in use is refused, everything else is done, and all goes on.
 */
class CallbackMisuseTest {
    private static final int MESSAGES = 5;

    @TempDir
    Path directory;

    private TableConfiguration configuration;
    private JNITboMessageTable writer;
    private JNITboMessageTable reader;
    private JNITboMessageTableIterator iterator;
    private JNITboMessageWatcher watcher;
    private JNITboMessageWatcher otherWatcher;
    private int stored;
    private int calls;
    private List<Object> outcomes;

    /** Where Java is called from, from within an operation of the table that the name says. */
    enum Callback {
        LISTENER_OF_THE_WRITER, LISTENER_OF_THE_READER, WATCH, COMPACT_WATCH, LOGGER, CONDITIONS, HOLDER, PROVIDER;

        boolean uses(Victim victim) {
            return switch (this) {
                case LISTENER_OF_THE_WRITER, LOGGER, CONDITIONS, HOLDER -> victim == Victim.WRITER;
                case LISTENER_OF_THE_READER -> victim == Victim.READER;
                case WATCH, COMPACT_WATCH -> victim == Victim.READER || victim == Victim.WATCHER;
                case PROVIDER -> false;
            };
        }
    }

    /** What an action closes, drops or starts anew. */
    enum Victim {
        WRITER, READER, WATCHER, NONE
    }

    /** What a callback does. */
    enum Action {
        WRITE(Victim.NONE), WRITE_THROUGH_THE_READER(Victim.NONE), DROP(Victim.WRITER), DROP_THE_READER(Victim.READER),
        CLOSE(Victim.WRITER), CLOSE_THE_READER(Victim.READER), CLOSE_THE_WATCHER(Victim.WATCHER),
        CLOSE_THE_ITERATOR(Victim.NONE), STEP_THE_ITERATOR(Victim.NONE), READ(Victim.NONE), LOOK_UP(Victim.NONE),
        QUERY(Victim.NONE), WATCH_AGAIN(Victim.WATCHER), WATCH_WITH_ANOTHER(Victim.NONE), OPEN_AGAIN(Victim.NONE),
        REPLACE_THE_FACILITY(Victim.NONE), REMOVE_THE_FACILITY(Victim.NONE), THROW(Victim.NONE),
        COLLECT_GARBAGE(Victim.NONE);

        private final Victim victim;

        Action(Victim victim) {
            this.victim = victim;
        }
    }

    @BeforeAll
    static void load() {
        Natives.load();
    }

    @BeforeEach
    void open() {
        configuration = TableConfiguration.builder("orders", directory).build();
        writer = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        while (stored < MESSAGES) {
            store(writer);
        }
        reader = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_READ);
        iterator = writer.getMessages(new RawConditions());
        watcher = JNITboMessageWatcher.open(reader);
        otherWatcher = JNITboMessageWatcher.open(reader);
        outcomes = new ArrayList<>();
    }

    @AfterEach
    void close() {
        JNITboLibLoader.uninitLibrary();
        otherWatcher.close();
        watcher.close();
        iterator.close();
        reader.close();
        writer.close();
    }

    private void store(JNITboMessageTable table) {
        int number = stored + 1;
        table.writeMessage(number, number, 0, number, number, 'D', null, false, false, null, null, "wire", null, null,
                null);
        stored = number;
    }

    private void perform(Action action) {
        switch (action) {
            case WRITE -> store(writer);
            case WRITE_THROUGH_THE_READER -> store(reader);
            case DROP -> {
                writer.drop();
                stored = 0;
            }
            case DROP_THE_READER -> reader.drop();
            case CLOSE -> writer.close();
            case CLOSE_THE_READER -> reader.close();
            case CLOSE_THE_WATCHER -> watcher.close();
            case CLOSE_THE_ITERATOR -> iterator.close();
            case STEP_THE_ITERATOR -> iterator.next();
            case READ -> writer.readMessages(new int[] {1, 2}, (count, timestamps, wires, others) -> 0);
            case LOOK_UP -> assertEquals(stored, writer.getLastUniformMessageId());
            case QUERY -> writer.getMessages(new RawConditions()).next();
            case WATCH_AGAIN -> watcher.startWatching(new int[] {1}, (count, timestamps, wires, others) -> 1);
            case WATCH_WITH_ANOTHER ->
                otherWatcher.startWatching(new int[] {1}, (count, timestamps, wires, others) -> 1);
            case OPEN_AGAIN -> JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE).close();
            case REPLACE_THE_FACILITY -> JNITboLibLoader.setLogFacility(new RecordingFacility());
            case REMOVE_THE_FACILITY -> JNITboLibLoader.uninitLibrary();
            case THROW -> throw new OnPurpose("a callback");
            default -> System.gc();
        }
    }

    /** What the callback does, once; a thrown THROW goes on into the library. */
    private void act(Action action) {
        if (++calls > 1) {
            return;
        }
        try {
            perform(action);
            outcomes.add(NO_ERROR);
        } catch (JNITboException error) {
            outcomes.add(error.getErrorCode());
        } catch (IllegalStateException refused) {
            outcomes.add(IllegalStateException.class);
        } catch (OnPurpose thrown) {
            outcomes.add(OnPurpose.class);
            throw thrown;
        }
    }

    private RecordingFacility facilityOf(Action action) {
        return new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return (argument, text) -> act(action);
            }
        };
    }

    private Object holderOf(Action action) {
        class Holder {
            public void setValue(long timestamp) {
                act(action);
            }
        }
        return new Holder();
    }

    private RawConditions conditionsOf(Action action) {
        return new RawConditions() {
            @Override
            public Boolean getIsPossDupFlag() {
                act(action);
                return null;
            }
        };
    }

    private Provider providerOf(Action action) {
        return new Provider(directory) {
            @Override
            public String[] getStringFieldsNames() {
                act(action);
                return null;
            }
        }.named("another");
    }

    /** Runs an operation that calls back; gives the code that it ends with. */
    private int run(Callback callback, Action action) {
        int[] ids = {1, 2, 3, 4, 5};
        try {
            switch (callback) {
                case LISTENER_OF_THE_WRITER -> writer.readMessages(ids, (n, times, wires, others) -> {
                    act(action);
                    return 0;
                });
                case LISTENER_OF_THE_READER -> reader.readMessages(ids, (n, times, wires, others) -> {
                    act(action);
                    return 0;
                });
                case WATCH -> watcher.startWatching(new int[] {1}, (n, times, wires, others) -> {
                    act(action);
                    return calls > 2 ? 1 : 0;
                });
                case COMPACT_WATCH -> watcher.startWatchingCompact(new int[] {1}, (n, uniformIds, wires) -> {
                    act(action);
                    return calls > 2 ? 1 : 0;
                });
                case LOGGER -> {
                    JNITboLibLoader.setLogFacility(facilityOf(action));
                    writer.getLastMessageId(-1);
                }
                case CONDITIONS -> writer.getMessages(conditionsOf(action)).close();
                case HOLDER -> writer.getLastGoodMsgSeqNum(0, holderOf(action));
                default -> JNITboMessageTable.open(providerOf(action), JNITboMessageTable.MODE_WRITE).close();
            }
            return NO_ERROR;
        } catch (JNITboException error) {
            return error.getErrorCode();
        }
    }

    private static Object expectedOutcome(Callback callback, Action action) {
        if (callback.uses(action.victim)) {
            return IllegalStateException.class;
        }
        return switch (action) {
            case WRITE_THROUGH_THE_READER, DROP_THE_READER -> READ_ONLY_ERROR;
            case OPEN_AGAIN -> FILE_OPEN_ERROR;
            case THROW -> OnPurpose.class;
            default -> NO_ERROR;
        };
    }

    private static int expectedCode(Callback callback, Action action) {
        if (callback == Callback.LOGGER) {
            return INDEX_OUT_OF_BOUNDS_ERROR;  // the warning's own; what a logger throws is dropped
        }
        return action == Action.THROW ? JNI_ERROR : NO_ERROR;
    }

    static Stream<Arguments> everythingFromEverywhere() {
        return Arrays.stream(Callback.values())
                .flatMap(callback -> Arrays.stream(Action.values()).map(action -> Arguments.of(callback, action)));
    }

    @ParameterizedTest
    @MethodSource("everythingFromEverywhere")
    void aCallbackDoesWhatItMayAndIsRefusedTheRestAndAllGoesOn(Callback callback, Action action) {
        int code = run(callback, action);
        assertTrue(calls > 0, "the callback was never called");
        assertEquals(List.of(expectedOutcome(callback, action)), outcomes, "what the action came to");
        assertEquals(expectedCode(callback, action), code, "how the operation around it ended");
        boolean isClosed = action == Action.CLOSE && !callback.uses(Victim.WRITER);
        JNITboMessageTable table =
                isClosed ? JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE) : writer;
        store(table);
        assertEquals(stored, table.getLastUniformMessageId(), "the table takes and finds messages");
        int[] found = new int[1];
        table.readMessages(new int[] {1, 2, 3, 4, 5, 6, 7}, (n, times, wires, others) -> {
            found[0] += n;
            return 0;
        });
        assertEquals(stored, found[0], "all messages are there");
        table.close();
    }
}
