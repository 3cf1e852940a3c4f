package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.TimestampHolder;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.time.Instant;
import java.time.temporal.ChronoUnit;

/** Asks a table what an engine asks after a restart, and compares the answers with the messages that were stored. */
final class Lookups {
    private final MessageStream stream;
    private final int count;

    Lookups(MessageStream stream, int count) {
        this.stream = stream;
        this.count = count;
    }

    void printAndCompare(JNITboMessageTable table) {
        for (MessageClass messageClass : MessageClass.values()) {
            print("last id of class " + messageClass, table.getLastMessageId(messageClass.firstId()),
                    lastId(messageClass));
        }
        int lastGood = lastGood();
        TimestampHolder holder = new TimestampHolder();
        print("last good MsgSeqNum", table.getLastGoodMsgSeqNum(0, holder), stream.message(lastGood).seqNum);
        print("  and its time", instant(holder.getValue()), instant(stream.message(lastGood).timestamp));
        // The recording holds no message that waited to be sent; these are the answers for that.
        print("first pending MsgSeqNum", table.getPendingMsgSeqNum(0, false), -1);
        print("last pending MsgSeqNum", table.getPendingMsgSeqNum(0, true), 0);
        print("last uniform message id", table.getLastUniformMessageId(), stream.uniformId(count - 1));
    }

    private int lastId(MessageClass messageClass) {
        for (int index = count - 1; index >= 0; --index) {
            if (stream.message(index).messageClass == messageClass) {
                return stream.connMsgId(index);
            }
        }
        return messageClass.firstId();
    }

    private int lastGood() {
        int index = count - 1;
        while (stream.message(index).isOutOfSequence || stream.message(index).messageClass == MessageClass.RESENT) {
            --index;
        }
        return index;
    }

    private static Instant instant(long micros) {
        return Instant.EPOCH.plus(micros, ChronoUnit.MICROS);
    }

    private static void print(String what, Object answer, Object expected) {
        System.out.printf("   %-28s %s%n", what, answer);
        if (!answer.equals(expected)) {
            throw new DemoFailure(what + " is " + answer + " and should be " + expected);
        }
    }
}
