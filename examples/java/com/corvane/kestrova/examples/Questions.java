package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Query;
import java.time.Instant;

/** The questions that a table of orders is asked most. */
public final class Questions {
    private Questions() {
    }

    /** What was sent under the numbers of a resend request; 0 as the end means up to the last. */
    public static Query resend(int begin, int end) {
        Query sent = Query.all().sent();
        return end == 0 ? sent.seqNumsFrom(begin) : sent.seqNums(begin, end);
    }

    /** Every message about one order. */
    public static Query order(String clOrdId) {
        return Query.all().text("ClOrdID", clOrdId);
    }

    /** Everything about a symbol between two times, both included. */
    public static Query symbolBetween(String symbol, Instant from, Instant until) {
        return Query.all().text("Symbol", symbol).from(from).until(until);
    }

    /** All messages from the last one back to the first; a reader stops where it has enough. */
    public static Query backwards() {
        return Query.all().backward();
    }

    /** Everything but heartbeats. */
    public static Query withoutHeartbeats() {
        return Query.all().withoutTypes("0");
    }
}
