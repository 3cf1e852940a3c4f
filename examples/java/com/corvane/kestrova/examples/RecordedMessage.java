package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.nio.charset.StandardCharsets;
import java.util.Set;

/** A recorded message with everything that a message table wants to know of it, found once before it is stored. */
final class RecordedMessage {
    private static final Set<String> ADMIN_TYPES = Set.of("0", "1", "2", "3", "4", "5", "A");

    final long timestamp;
    final MessageClass messageClass;
    final int seqNum;
    final boolean isOutOfSequence;
    final String msgType;
    final String clOrdId;
    final String symbol;
    final byte[] wire;
    final byte[] nonMetadata;

    private final boolean isPossDup;
    private final String sender;
    private final String target;
    private final String[] strings;
    private final double[] numbers;
    /** For each number its place among the doubles, as the table's overload with bytes takes it; 0 when absent. */
    private final int[] numberTypes;
    private final String wireText;
    private final String nonMetadataText;

    RecordedMessage(FixLogLine line, FixMessage message, boolean isOutOfSequence) {
        timestamp = line.timestamp();
        msgType = message.text(FixTag.MSG_TYPE);
        isPossDup = message.isSet(FixTag.POSS_DUP_FLAG);
        messageClass = classOf(line.outgoing(), isPossDup, ADMIN_TYPES.contains(msgType));
        seqNum = message.number(FixTag.MSG_SEQ_NUM);
        this.isOutOfSequence = isOutOfSequence;
        sender = message.text(FixTag.SENDER_COMP_ID);
        target = message.text(FixTag.TARGET_COMP_ID);
        wire = line.message();
        nonMetadata = message.without(FixTag.METADATA);
        clOrdId = message.text(FixTag.CL_ORD_ID);
        symbol = message.text(FixTag.SYMBOL);
        strings = new String[] {clOrdId, symbol, message.text(FixTag.ACCOUNT)};

        Double quantity = message.decimal(FixTag.ORDER_QTY);
        Double price = message.decimal(FixTag.PRICE);
        numbers = price != null ? new double[] {orAbsent(quantity), price}
                : quantity != null ? new double[] {quantity} : new double[0];
        numberTypes = new int[] {quantity != null ? -1 : 0, price != null ? -2 : 0};

        boolean asText = isPlainAscii(wire);
        wireText = asText ? new String(wire, StandardCharsets.US_ASCII) : null;
        nonMetadataText = asText ? new String(nonMetadata, StandardCharsets.US_ASCII) : null;
    }

    /** Whether the engine sent the message; else it received it. */
    boolean isSent() {
        return messageClass != MessageClass.APP_FROM && messageClass != MessageClass.ADMIN_FROM;
    }

    /** Whether the message is stored as text; else it is stored as bytes. */
    boolean isText() {
        return wireText != null;
    }

    void store(JNITboMessageTable table, int uniformId, int connMsgId) {
        if (wireText != null) {
            table.writeMessage(uniformId, seqNum, 0, connMsgId, timestamp, msgType.charAt(0), msgType, isPossDup,
                    isOutOfSequence, sender, target, wireText, nonMetadataText, strings, numbers);
        } else {
            table.writeMessage(uniformId, seqNum, 0, connMsgId, timestamp, msgType.charAt(0), msgType, isPossDup,
                    isOutOfSequence, sender, target, wire, 0, wire.length, null, 0, 0, nonMetadata, 0,
                    nonMetadata.length, strings, numberTypes, null, numbers);
        }
    }

    private static MessageClass classOf(boolean outgoing, boolean isPossDup, boolean isAdmin) {
        if (!outgoing) {
            return isAdmin ? MessageClass.ADMIN_FROM : MessageClass.APP_FROM;
        }
        if (isPossDup) {
            return MessageClass.RESENT;
        }
        return isAdmin ? MessageClass.ADMIN_TO : MessageClass.APP_TO;
    }

    /** Among text only the last numbers can be left out; not a number stands for one before them that is absent. */
    private static double orAbsent(Double number) {
        return number == null ? Double.NaN : number;
    }

    /** A zero byte is ASCII, but the modified UTF-8 of a Java string has two other bytes in its place. */
    private static boolean isPlainAscii(byte[] bytes) {
        for (byte b : bytes) {
            if (b <= 0) {
                return false;
            }
        }
        return true;
    }
}
