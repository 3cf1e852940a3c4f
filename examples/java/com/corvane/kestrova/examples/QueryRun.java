package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.time.Instant;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.function.Function;
import java.util.function.Predicate;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import java.util.stream.Stream;

/**
 * Asks a table the five questions that people ask most, takes the time, and compares the answers with what a look at
 * every recorded message gives.
 */
final class QueryRun {
    private static final int RESENT_AT_ONCE = 100;
    private static final int LAST_MESSAGES = 20;
    private static final int TIMES_ASKED = 21;
    private static final String HEARTBEAT = "0";

    private final MessageStream stream;
    private final int count;
    private final MessageStore store;

    QueryRun(MessageStream stream, int count, MessageStore store) {
        this.stream = stream;
        this.count = count;
        this.store = store;
    }

    void printAndCompare() {
        int begin = where(message -> isNew(message)).map(index -> stream.message(index).seqNum).max().orElseThrow() / 2;
        int end = begin + RESENT_AT_ONCE - 1;
        ask("sent as " + begin + " to " + end, Questions.resend(begin, end), Integer.MAX_VALUE,
                where(message -> isNew(message) && message.seqNum >= begin && message.seqNum <= end));

        String order = where(message -> message.clOrdId != null).skip(count / 4)
                .mapToObj(index -> stream.message(index).clOrdId).findFirst().orElseThrow();
        ask("of the order " + order, Questions.order(order), Integer.MAX_VALUE,
                where(message -> order.equals(message.clOrdId)));

        String symbol = mostFrequentSymbol();
        int[] ofSymbol = where(message -> symbol.equals(message.symbol)).toArray();
        Instant from = stream.message(ofSymbol[ofSymbol.length / 3]).time;
        Instant until = stream.message(ofSymbol[ofSymbol.length * 2 / 3]).time;
        ask("of " + symbol + ", the middle third", Questions.symbolBetween(symbol, from, until), Integer.MAX_VALUE,
                where(message -> symbol.equals(message.symbol) && !message.time.isBefore(from)
                        && !message.time.isAfter(until)));

        ask("last " + LAST_MESSAGES + ", backwards", Questions.backwards(), LAST_MESSAGES,
                IntStream.range(0, LAST_MESSAGES).map(i -> count - 1 - i));

        ask("everything but heartbeats", Questions.withoutHeartbeats(), Integer.MAX_VALUE,
                where(message -> !HEARTBEAT.equals(message.msgType)));
    }

    /** Sent, and not a repetition. */
    private static boolean isNew(RecordedMessage message) {
        return message.messageClass == MessageClass.APP_TO || message.messageClass == MessageClass.ADMIN_TO;
    }

    private IntStream where(Predicate<RecordedMessage> condition) {
        return IntStream.range(0, count).filter(index -> condition.test(stream.message(index)));
    }

    private String mostFrequentSymbol() {
        Map<String, Long> counts = where(message -> message.symbol != null)
                .mapToObj(index -> stream.message(index).symbol)
                .collect(Collectors.groupingBy(Function.identity(), Collectors.counting()));
        return counts.entrySet().stream().max(Map.Entry.<String, Long>comparingByValue()
                .thenComparing(Map.Entry.comparingByKey())).orElseThrow().getKey();
    }

    private void compare(String what, List<Integer> expected, List<StoredMessage> answer) {
        if (answer.size() != expected.size()) {
            throw new DemoFailure(what + ": " + answer.size() + " messages instead of " + expected.size());
        }
        for (int i = 0; i < answer.size(); ++i) {
            if (!stream.isAt(answer.get(i), expected.get(i))) {
                throw new DemoFailure(what + ": answer number " + (i + 1) + " is not the recorded message");
            }
        }
    }

    private void ask(String what, Query question, int most, IntStream expectedIndexes) {
        List<Integer> expected = expectedIndexes.boxed().toList();
        double[] micros = new double[TIMES_ASKED];
        for (int time = 0; time < TIMES_ASKED; ++time) {
            long start = System.nanoTime();
            List<StoredMessage> answer;
            try (Stream<StoredMessage> messages = store.query(question)) {
                answer = messages.limit(most).toList();
            }
            micros[time] = (System.nanoTime() - start) / 1e3;
            compare(what, expected, answer);
        }
        double first = micros[0];
        Arrays.sort(micros);
        System.out.printf("     %-36s %,8d %,10.0f %,10.0f%n", what, expected.size(), first, micros[TIMES_ASKED / 2]);
    }
}
