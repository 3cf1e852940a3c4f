package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
import java.util.function.Function;
import java.util.function.Predicate;
import java.util.stream.Collectors;
import java.util.stream.IntStream;

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
    private final Questions questions;
    private final JNITboMessageTable table;

    QueryRun(MessageStream stream, int count, Questions questions, JNITboMessageTable table) {
        this.stream = stream;
        this.count = count;
        this.questions = questions;
        this.table = table;
    }

    void printAndCompare() {
        int begin = where(message -> isNew(message)).map(index -> stream.message(index).seqNum).max().orElseThrow() / 2;
        int end = begin + RESENT_AT_ONCE - 1;
        ask("sent as " + begin + " to " + end, questions.resend(begin, end), Integer.MAX_VALUE,
                where(message -> isNew(message) && message.seqNum >= begin && message.seqNum <= end));

        String order = where(message -> message.clOrdId != null).skip(count / 4)
                .mapToObj(index -> stream.message(index).clOrdId).findFirst().orElseThrow();
        ask("of the order " + order, questions.order(order), Integer.MAX_VALUE,
                where(message -> order.equals(message.clOrdId)));

        String symbol = mostFrequentSymbol();
        int[] ofSymbol = where(message -> symbol.equals(message.symbol)).toArray();
        long from = stream.message(ofSymbol[ofSymbol.length / 3]).timestamp;
        long to = stream.message(ofSymbol[ofSymbol.length * 2 / 3]).timestamp;
        ask("of " + symbol + ", the middle third", questions.symbolBetween(symbol, from, to), Integer.MAX_VALUE,
                where(message -> symbol.equals(message.symbol) && message.timestamp >= from
                        && message.timestamp <= to));

        ask("last " + LAST_MESSAGES + ", backwards", questions.backwards(), LAST_MESSAGES,
                IntStream.range(0, LAST_MESSAGES).map(i -> count - 1 - i));

        ask("everything but heartbeats", questions.withoutHeartbeats(), Integer.MAX_VALUE,
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

    private void ask(String what, MessageQueryConditions question, int most, IntStream expectedIndexes) {
        List<Integer> expected = expectedIndexes.boxed().toList();
        double[] micros = new double[TIMES_ASKED];
        for (int time = 0; time < TIMES_ASKED; ++time) {
            int[] taken = {0};
            long start = System.nanoTime();
            int answered = Questions.read(table, question, most, message -> {
                int at = taken[0]++;
                if (at >= expected.size() || !stream.isAt(message, expected.get(at))) {
                    throw new DemoFailure(what + ": answer number " + (at + 1) + " is not the recorded message");
                }
            });
            micros[time] = (System.nanoTime() - start) / 1e3;
            if (answered != expected.size()) {
                throw new DemoFailure(what + ": " + answered + " messages instead of " + expected.size());
            }
        }
        double first = micros[0];
        Arrays.sort(micros);
        System.out.printf("     %-36s %,8d %,10.0f %,10.0f%n", what, expected.size(), first, micros[TIMES_ASKED / 2]);
    }
}
