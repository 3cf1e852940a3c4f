package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertDoesNotThrow;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.file.Path;
import java.util.List;
import java.util.function.Consumer;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;

/** Iterators as an engine uses them: nothing that is closed reaches the library any more. */
class IteratorPeerTest {
    @TempDir
    Path directory;

    private TableConfiguration configuration;
    private JNITboMessageTable table;

    @BeforeEach
    void openTheTable() {
        Natives.load();
        configuration = TableConfiguration.builder("orders", directory).stringFields("Symbol").numericFields("Price")
                .build();
        table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        for (int i = 1; i <= 3; ++i) {
            table.writeMessage(i, i, 0, i, 100 + i, ' ', "D", false, false, "from", "to", "wire" + i, "other" + i,
                    new String[] {"ACME"}, new double[] {i + 0.5});
        }
    }

    @AfterEach
    void closeTheTable() {
        table.close();
        JNITboLibLoader.uninitLibrary();
    }

    private JNITboMessageTableIterator all() {
        return table.getMessages(MessageQueryConditions.builder(configuration).build());
    }

    @Test
    void theGettersAnswerForTheMessageAtHand() {
        try (JNITboMessageTableIterator messages = all()) {
            assertTrue(messages.next());
            assertTrue(messages.next());
            assertEquals(2, messages.getUniformMessageId());
            assertEquals(2, messages.getMsgSeqNum());
            assertEquals(0, messages.getPrevSeqNum());
            assertEquals(2, messages.getConnectionMsgId());
            assertEquals(102, messages.getTimestamp());
            assertEquals("D", messages.getMsgType());
            assertFalse(messages.getIsPossDupFlag());
            assertFalse(messages.getIsOutOfSequence());
            assertEquals("wire2", messages.getWireMessage());
            assertArrayEquals("wire2".getBytes(), messages.getWireMessageAsByteArray());
            assertEquals("other2", messages.getNonMetadataFields());
            assertArrayEquals("other2".getBytes(), messages.getNonMetadataFieldsAsByteArray());
            assertEquals("ACME", messages.getStringField(configuration.stringFieldId("Symbol")));
            assertEquals(2, messages.getNumericFieldAsLong(configuration.numericFieldId("Price")));
            assertEquals(2.5, messages.getNumericFieldAsDouble(configuration.numericFieldId("Price")));
            assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> messages.getStringField(6));
        }
    }

    static List<Consumer<JNITboMessageTableIterator>> operations() {
        return List.of(JNITboMessageTableIterator::next, JNITboMessageTableIterator::getUniformMessageId,
                JNITboMessageTableIterator::getMsgSeqNum, JNITboMessageTableIterator::getPrevSeqNum,
                JNITboMessageTableIterator::getConnectionMsgId, JNITboMessageTableIterator::getTimestamp,
                JNITboMessageTableIterator::getMsgType, JNITboMessageTableIterator::getIsPossDupFlag,
                JNITboMessageTableIterator::getIsOutOfSequence, JNITboMessageTableIterator::getWireMessage,
                JNITboMessageTableIterator::getWireMessageAsByteArray, JNITboMessageTableIterator::getNonMetadataFields,
                JNITboMessageTableIterator::getNonMetadataFieldsAsByteArray, it -> it.getStringField(0),
                it -> it.getNumericFieldAsLong(0), it -> it.getNumericFieldAsDouble(0));
    }

    @ParameterizedTest
    @MethodSource("operations")
    void aClosedIteratorRefusesEverything(Consumer<JNITboMessageTableIterator> operation) {
        JNITboMessageTableIterator messages = all();
        messages.next();
        assertDoesNotThrow(() -> operation.accept(messages));
        messages.close();
        assertFails(ITERATOR_CLOSED_ERROR, () -> operation.accept(messages));
        assertDoesNotThrow(messages::close, "closing again does nothing");
    }

    @ParameterizedTest
    @MethodSource("operations")
    void closingTheTableClosesItsIterators(Consumer<JNITboMessageTableIterator> operation) {
        JNITboMessageTableIterator first = all();
        JNITboMessageTableIterator second = all();
        first.next();
        table.close();
        assertFails(ITERATOR_CLOSED_ERROR, () -> operation.accept(first));
        assertFails(ITERATOR_CLOSED_ERROR, () -> operation.accept(second));
        assertDoesNotThrow(first::close);
    }

    @Test
    void droppingTheTableClosesItsIteratorsAndTheTableGoesOn() {
        JNITboMessageTableIterator messages = all();
        table.drop();
        assertFails(ITERATOR_CLOSED_ERROR, messages::next);
        try (JNITboMessageTableIterator none = all()) {
            assertFalse(none.next());
        }
    }

    @Test
    void aClosedTableOpensNoQuery() {
        MessageQueryConditions conditions = MessageQueryConditions.builder(configuration).build();
        table.close();
        assertFails(TABLE_CLOSED_ERROR, () -> table.getMessages(conditions));
    }

    @Test
    void theTableMayBeUsedWhileAnIteratorIsOpen() {
        try (JNITboMessageTableIterator messages = all()) {
            for (int i = 1; i <= 1200; ++i) {
                assertTrue(messages.next());
                assertEquals(i, messages.getUniformMessageId());
                int next = i + 3;
                table.writeMessage(next, next, 0, next, 0, ' ', "8", false, false, null, null, "w", null,
                        new String[1], null);
                assertEquals(next, table.getLastUniformMessageId());
            }
        }
    }

    /** Conditions with a getter that does something to the table that is asked. */
    private static RawConditions doing(Runnable action) {
        return new RawConditions() {
            @Override
            public Boolean getIsPossDupFlag() {
                action.run();
                return super.getIsPossDupFlag();
            }
        };
    }

    @Test
    void aGetterCannotCloseOrDropTheTableThatIsAsked() {
        assertFails(JNI_ERROR, () -> table.getMessages(doing(table::close)));
        assertFails(JNI_ERROR, () -> table.getMessages(doing(table::drop)));
        try (JNITboMessageTableIterator messages = all()) {
            assertTrue(messages.next(), "the table is open and has its messages");
        }
    }

    @Test
    void aFailedQueryLeavesNothingOpen() {
        assertFails(JNI_ERROR, () -> table.getMessages(new Object()));
        assertDoesNotThrow(table::close);
        JNITboMessageTable again = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        again.close();
    }

    @Test
    void closingTheIteratorInTheMiddleOfALoopEndsIt() {
        int seen = 0;
        JNITboException end = null;
        try (JNITboMessageTableIterator messages = all()) {
            while (messages.next()) {
                ++seen;
                table.close();
            }
        } catch (JNITboException closed) {
            end = closed;
        }
        assertEquals(1, seen);
        assertNotNull(end);
        assertEquals(ITERATOR_CLOSED_ERROR, end.getErrorCode());
    }
}
