package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.store.FrameEncoder;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;

/** One order as an engine holds it when it stores it: what each way of storing takes. */
final class Order {
    private static final int[] NUMERIC_TYPES = {1, -1};  // a long and a double

    private int uniformId;
    private int seqNum;
    private int prevSeqNum;
    private int connMsgId;
    private long timestamp;
    private String msgType;
    private boolean possDup;
    private boolean outOfSequence;
    private String session;
    private String gateway;
    private String[] texts;
    private String wire;
    private String other;
    private byte[] wireBytes;
    private byte[] otherBytes;
    private double[] numbers;
    private long[] longs;
    private double[] doubles;

    /** Everything that the overloads have in common. */
    private void readCommon(JNITboMessageTableIterator from) {
        uniformId = from.getUniformMessageId();
        seqNum = from.getMsgSeqNum();
        prevSeqNum = from.getPrevSeqNum();
        connMsgId = from.getConnectionMsgId();
        timestamp = from.getTimestamp();
        msgType = from.getMsgType();
        possDup = from.getIsPossDupFlag();
        outOfSequence = from.getIsOutOfSequence();
        session = from.getStringField(0);
        gateway = from.getStringField(1);
        texts = new String[] {from.getStringField(OrdersTable.CL_ORD_ID), from.getStringField(OrdersTable.SYMBOL),
                from.getStringField(OrdersTable.ACCOUNT)};
    }

    /** Takes the message at which an iterator stands, as text. */
    void readStrings(JNITboMessageTableIterator from) {
        readCommon(from);
        wire = from.getWireMessage();
        other = from.getNonMetadataFields();
        numbers = new double[] {from.getNumericFieldAsDouble(OrdersTable.ORDER_QTY),
                from.getNumericFieldAsDouble(OrdersTable.PRICE)};
    }

    /** Takes the message at which an iterator stands, as bytes. */
    void readBytes(JNITboMessageTableIterator from) {
        readCommon(from);
        wireBytes = from.getWireMessageAsByteArray();
        otherBytes = from.getNonMetadataFieldsAsByteArray();
        longs = new long[] {from.getNumericFieldAsLong(OrdersTable.ORDER_QTY)};
        doubles = new double[] {from.getNumericFieldAsDouble(OrdersTable.PRICE)};
    }

    void storeStrings(JNITboMessageTable table) {
        table.writeMessage(uniformId, seqNum, prevSeqNum, connMsgId, timestamp, '\0', msgType, possDup, outOfSequence,
                session, gateway, wire, other, texts, numbers);
    }

    /** The wire message goes in two parts, as an engine has it that keeps the header apart. */
    void storeBytes(JNITboMessageTable table) {
        int half = wireBytes.length / 2;
        table.writeMessage(uniformId, seqNum, prevSeqNum, connMsgId, timestamp, '\0', msgType, possDup, outOfSequence,
                session, gateway, wireBytes, 0, half, wireBytes, half, wireBytes.length - half, otherBytes, 0,
                otherBytes.length, texts, NUMERIC_TYPES, longs, doubles);
    }

    void storeFrame(FrameEncoder encoder, JNITboMessageTable table) {
        encoder.begin(uniformId, connMsgId).seqNum(seqNum).prevSeqNum(prevSeqNum).timestamp(timestamp).type(msgType)
                .possDup(possDup).outOfSequence(outOfSequence).text0(session).text1(gateway)
                .text("ClOrdID", texts[0]).text("Symbol", texts[1]).text("Account", texts[2])
                .number("OrderQty", longs[0]).number("Price", doubles[0]).wire(wireBytes, 0, wireBytes.length)
                .nonMetadata(otherBytes, 0, otherBytes.length).storeIn(table);
    }

    void append(MessageStore store) {
        store.append().messageClass(MessageClass.APP_TO).seqNum(seqNum).timestamp(timestamp).type(msgType)
                .possDup(possDup).outOfSequence(outOfSequence).text0(session).text1(gateway)
                .text("ClOrdID", texts[0]).text("Symbol", texts[1]).text("Account", texts[2])
                .number("OrderQty", longs[0]).number("Price", doubles[0]).wire(wireBytes).nonMetadata(otherBytes)
                .store();
    }
}
