package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.store.Append;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import java.time.Instant;
import java.time.temporal.ChronoUnit;
import java.util.Set;

/** A recorded message with everything that a message table wants to know of it, found once before it is stored. */
final class RecordedMessage {
    private static final Set<String> ADMIN_TYPES = Set.of("0", "1", "2", "3", "4", "5", "A");

    final Instant time;
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
    private final String account;
    /** Null where the message has none. */
    private final Double quantity;
    private final Double price;

    RecordedMessage(FixLogLine line, FixMessage message, boolean isOutOfSequence) {
        time = Instant.EPOCH.plus(line.timestamp(), ChronoUnit.MICROS);
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
        account = message.text(FixTag.ACCOUNT);
        quantity = message.decimal(FixTag.ORDER_QTY);
        price = message.decimal(FixTag.PRICE);
    }

    /** Whether the engine sent the message; else it received it. */
    boolean isSent() {
        return messageClass != MessageClass.APP_FROM && messageClass != MessageClass.ADMIN_FROM;
    }

    /** Whether the message is the last one that its direction counts, once it is stored. */
    boolean isCounted() {
        return !isOutOfSequence && messageClass != MessageClass.RESENT;
    }

    /** Stores the message; gives the connection message id that it got. */
    int store(MessageStore store) {
        Append message = store.append().messageClass(messageClass).seqNum(seqNum).time(time).type(msgType)
                .possDup(isPossDup).outOfSequence(isOutOfSequence).text0(sender).text1(target)
                .text("ClOrdID", clOrdId).text("Symbol", symbol).text("Account", account)
                .wire(wire).nonMetadata(nonMetadata);
        if (quantity != null) {
            message.number("OrderQty", quantity);
        }
        if (price != null) {
            message.number("Price", price);
        }
        return message.store();
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
}
