package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditionsBuilder;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.util.function.Consumer;

/** The questions that a table of orders is asked most. */
public record Questions(TableConfiguration configuration) {
    /** What was sent under the numbers of a resend request; 0 as the end means up to the last. */
    public MessageQueryConditions resend(int begin, int end) {
        MessageQueryConditionsBuilder sent = ask().messageClasses(MessageClass.APP_TO, MessageClass.ADMIN_TO);
        return (end == 0 ? sent.seqNumFrom(begin) : sent.seqNumRange(begin, end)).build();
    }

    /** Every message about one order. */
    public MessageQueryConditions order(String clOrdId) {
        return ask().string("ClOrdID", StringFieldFilter.anyOf(clOrdId)).build();
    }

    /** Everything about a symbol between two times, both included. */
    public MessageQueryConditions symbolBetween(String symbol, long from, long to) {
        return ask().string("Symbol", StringFieldFilter.anyOf(symbol)).startingTime(from).endingTime(to).build();
    }

    /** All messages from the last one back to the first; a reader stops where it has enough. */
    public MessageQueryConditions backwards() {
        return ask().backward().build();
    }

    /** Everything but heartbeats. */
    public MessageQueryConditions withoutHeartbeats() {
        return ask().excludeMsgTypes("0").build();
    }

    /** Asks an open table and takes so many of the messages at most; tells how many there were. */
    public static int read(JNITboMessageTable table, MessageQueryConditions question, int most,
            Consumer<JNITboMessageTableIterator> taker) {
        int count = 0;
        try (JNITboMessageTableIterator messages = table.getMessages(question)) {
            while (count < most && messages.next()) {
                taker.accept(messages);  // which asks it for getWireMessage(), getMsgSeqNum() and so on
                ++count;
            }
        }
        return count;
    }

    private MessageQueryConditionsBuilder ask() {
        return MessageQueryConditions.builder(configuration);
    }
}
