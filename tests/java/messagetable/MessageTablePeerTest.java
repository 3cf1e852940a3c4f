package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_FLUSH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.READ_ONLY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.TimestampHolder;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicReference;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;

/** JNITboMessageTable as hosts use it. */
class MessageTablePeerTest extends OnTables {
    private TableConfiguration configuration() {
        return TableConfiguration.builder("orders", directory).stringFields("ClOrdID").numericFields("Price").build();
    }

    private JNITboMessageTable openPeer(int mode) {
        return JNITboMessageTable.open(configuration(), mode);
    }

    private static void store(JNITboMessageTable table, int number) {
        table.writeMessage(number, number, 0, number, 1_000L + number, 'D', "D", false, false, null, null,
                "wire" + number, null, new String[] {"order" + number}, new double[] {number});
    }

    private MessageQueryConditions everything() {
        return MessageQueryConditions.builder(configuration()).build();
    }

    @Test
    void whatIsStoredComesBackAfterACloseAndAnOpen() {
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            byte[] wire = {'w', 0, (byte) 0xFF};
            table.writeMessage(2, 2, 0, 2, 1_002, 'D', null, false, false, null, null, wire, 0, 2, wire, 2, 1, null, 0,
                    0, null, new int[] {1}, new long[] {5}, null);
        }
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_READ)) {
            RecordingListener listener = new RecordingListener();
            table.readMessages(new int[] {2, 1}, listener);
            assertEquals(List.of(1_001L, 1_002L), listener.timestamps());
            assertArrayEquals(latin1("wire1"), listener.wireBytes().get(0));
            assertArrayEquals(new byte[] {'w', 0, (byte) 0xFF}, listener.wireBytes().get(1));
            TimestampHolder holder = new TimestampHolder();
            assertEquals(2, table.getLastGoodMsgSeqNum(0, holder));
            assertEquals(1_002, holder.getValue());
            assertEquals(2, table.getLastMessageId(0));
            assertEquals(2, table.getLastUniformMessageId());
            assertEquals(-1, table.getPendingMsgSeqNum(0, false));
            assertEquals(0, table.getPendingMsgSeqNum(0, true));
        }
    }

    @Test
    void anEncodedFrameIsStored() throws Exception {
        TableConfiguration plain = TableConfiguration.builder("orders", directory).build();
        try (JNITboMessageTable table = JNITboMessageTable.open(plain, JNITboMessageTable.MODE_WRITE)) {
            byte[] frame = StoredMessage.frame(9, 1, 5, 99, "D", null, null, latin1("wire\0"), null).array();
            table.writeMessage(frame, 0, frame.length);
            assertEquals(9, table.getLastUniformMessageId());
        }
        assertEquals("wire\0", theStored().string(2));
    }

    @Test
    void readMessagesTakesTheFirstIdsOrAllOfThem() {
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            store(table, 2);
            RecordingListener one = new RecordingListener();
            table.readMessages(new int[] {2, 1}, 1, one);
            assertEquals(List.of(1_002L), one.timestamps());
            assertFails(JNI_ERROR, () -> table.readMessages(null, new RecordingListener()));
            assertFails(NULL_POINTER_ERROR, () -> table.readMessages(new int[] {1}, null));
        }
    }

    @Test
    void aFailedOpenThrowsAndGivesNoTable() {
        assertFails(FILE_OPEN_ERROR, () -> openPeer(JNITboMessageTable.MODE_READ));
        assertFails(JNI_ERROR, () -> JNITboMessageTable.open(null, JNITboMessageTable.MODE_WRITE));
    }

    @Test
    void closingTwiceIsOneClose() {
        JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE);
        table.close();
        table.close();
        JNITboMessageTable other = openPeer(JNITboMessageTable.MODE_WRITE);
        table.close();
        store(other, 1);
        other.close();
    }

    @Test
    void everyUseAfterCloseSaysThatTheTableIsClosed() {
        JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE);
        table.close();
        Stream<Executable> uses = Stream.of(() -> store(table, 1),
                () -> table.writeMessage(1, 1, 0, 1, 1, 'D', null, false, false, null, null, null, 0, 0, null, 0, 0,
                        null, 0, 0, null, new int[1], null, null),
                () -> table.writeMessage(new byte[100], 0, 100),
                () -> table.readMessages(new int[] {1}, new RecordingListener()),
                () -> table.readMessages(new int[] {1}, 1, new RecordingListener()),
                () -> table.getMessages(everything()), () -> table.getLastMessageId(0),
                () -> table.getLastGoodMsgSeqNum(0, null), () -> table.getPendingMsgSeqNum(0, true),
                table::getLastUniformMessageId, table::drop);
        uses.forEach(use -> assertFails(TABLE_CLOSED_ERROR, use));
    }

    @Test
    void aDropEmptiesTheTableAndClosesItsIterators() {
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            JNITboMessageTableIterator iterator = table.getMessages(everything());
            table.drop();
            assertFails(ITERATOR_CLOSED_ERROR, iterator::next);
            assertEquals(0, table.getLastUniformMessageId());
            store(table, 2);
            assertEquals(2, table.getLastUniformMessageId());
        }
    }

    @Test
    void aRefusedDropLeavesTheTableOpen() {
        openPeer(JNITboMessageTable.MODE_WRITE).close();
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_READ)) {
            assertFails(READ_ONLY_ERROR, table::drop);
            assertEquals(0, table.getLastUniformMessageId());
        }
    }

    @Test
    void closingATableClosesItsIterators() {
        JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE);
        store(table, 1);
        JNITboMessageTableIterator first = table.getMessages(everything());
        JNITboMessageTableIterator second = table.getMessages(everything());
        assertTrue(first.next());
        second.close();
        second.close();
        assertFails(ITERATOR_CLOSED_ERROR, second::next);
        assertTrue(table.getLastUniformMessageId() == 1, "the table stays open behind an iterator's close");
        table.close();
        Stream<Executable> uses = Stream.of(first::next, first::getConnectionMsgId, first::getUniformMessageId,
                first::getMsgSeqNum, first::getPrevSeqNum, first::getTimestamp, first::getMsgType,
                first::getIsPossDupFlag, first::getIsOutOfSequence, first::getWireMessage,
                first::getWireMessageAsByteArray, first::getNonMetadataFields, first::getNonMetadataFieldsAsByteArray,
                () -> first.getStringField(0), () -> first.getNumericFieldAsLong(0),
                () -> first.getNumericFieldAsDouble(0));
        uses.forEach(use -> assertFails(ITERATOR_CLOSED_ERROR, use));
        first.close();
    }

    @Test
    void aListenerCannotCloseOrDropTheTableThatItReadsFrom() {
        try (JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            RecordingListener listener = new RecordingListener(call -> {
                assertThrows(IllegalStateException.class, table::close);
                assertThrows(IllegalStateException.class, table::drop);
                return table.getLastUniformMessageId() == 1 ? 0 : 1;
            });
            table.readMessages(new int[] {1}, listener);
            assertEquals(List.of(1), listener.counts());
            store(table, 2);
            assertEquals(2, table.getLastUniformMessageId());
        }
    }

    @Test
    void aCloseOnAnotherThreadWaitsForTheReadUnderWay() throws InterruptedException {
        JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE);
        store(table, 1);
        CountDownLatch reading = new CountDownLatch(1);
        AtomicBoolean isClosed = new AtomicBoolean();
        AtomicReference<Throwable> thrown = new AtomicReference<>();
        Thread closer = new Thread(() -> {
            try {
                reading.await();
                table.close();
                isClosed.set(true);
            } catch (Throwable refused) {
                thrown.set(refused);
            }
        });
        closer.start();
        boolean[] wasClosed = new boolean[1];
        table.readMessages(new int[] {1}, (count, timestamps, wires, others) -> {
            reading.countDown();
            while (closer.getState() != Thread.State.BLOCKED) {
                Thread.onSpinWait();  // until it waits for us
            }
            wasClosed[0] = isClosed.get() || table.getLastUniformMessageId() != 1;
            return 0;
        });
        closer.join();
        assertEquals(null, thrown.get());
        assertFalse(wasClosed[0], "the table was closed in the middle of the read");
        assertTrue(isClosed.get());
        assertFails(TABLE_CLOSED_ERROR, table::getLastUniformMessageId);
    }

    @Test
    void aCloseThatThrowsFreesTheTableAllTheSame() {
        JNITboMessageTable table = openPeer(JNITboMessageTable.MODE_WRITE);
        store(table, 1);
        FileSizeLimit.during(0, () -> assertFails(FILE_FLUSH_ERROR, table::close));
        table.close();
        assertFails(TABLE_CLOSED_ERROR, table::getLastUniformMessageId);
        try (JNITboMessageTable again = openPeer(JNITboMessageTable.MODE_WRITE)) {
            assertEquals(1, again.getLastUniformMessageId());
        }
    }
}
