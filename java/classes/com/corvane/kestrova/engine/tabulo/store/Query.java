package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageNumericField;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditionsBuilder;
import com.corvane.kestrova.engine.tabulo.MessageStringField;
import com.corvane.kestrova.engine.tabulo.NumericFieldFilter;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.List;
import java.util.Objects;
import java.util.concurrent.TimeUnit;

/**
 * Which messages of a table are wanted, and from which end: all that meet every condition given. Objects are immutable;
 * each method gives a new one, and one object may be asked of many stores.
 *
 * <p>Whether a table has a field is found out when the query is asked of it, see {@link MessageStore#query(Query)}. A
 * condition that is given twice holds as it was given last; each field has one filter.
 */
public final class Query {
    private static final Query ALL = new Query(List.of(), null, null);

    private final List<Step> steps;
    /** Null for no bound, as the next one. */
    private final Instant from;
    private final Instant until;

    private Query(List<Step> steps, Instant from, Instant until) {
        this.steps = steps;
        this.from = from;
        this.until = until;
    }

    /** A condition: in words, and how it is told to the library. */
    private record Step(String words, Condition condition) {
    }

    /** Tells the builder of a table's conditions. */
    @FunctionalInterface
    private interface Condition {
        void tell(MessageQueryConditionsBuilder builder);
    }

    /**
     * All messages, from the first stored to the last.
     *
     * @return the query without conditions
     */
    public static Query all() {
        return ALL;
    }

    /**
     * From the last message stored back to the first.
     *
     * @return the query
     */
    public Query backward() {
        return with("backward", builder -> builder.backward());
    }

    /**
     * Messages to the counterparty, without those sent again.
     *
     * @return the query
     */
    public Query sent() {
        return classes(Direction.SENT.classes());
    }

    /**
     * Messages from the counterparty.
     *
     * @return the query
     */
    public Query received() {
        return classes(Direction.RECEIVED.classes());
    }

    /**
     * Messages of some classes.
     *
     * @param classes the classes, at least one
     * @return the query
     * @throws IllegalArgumentException when there is none
     */
    public Query classes(MessageClass... classes) {
        if (classes.length == 0) {
            throw new IllegalArgumentException("no class is given: without this condition all are wanted");
        }
        List<MessageClass> given = List.of(classes);
        return with("classes " + given,
                builder -> builder.messageClasses(given.toArray(MessageClass[]::new)));
    }

    /**
     * Messages with a range of MsgSeqNums.
     *
     * @param begin the lowest number, included; messages that wait to be sent have negative ones
     * @param end the highest number, included
     * @return the query
     * @throws IllegalArgumentException when {@code end} is below {@code begin}
     */
    public Query seqNums(int begin, int end) {
        if (end < begin) {
            throw new IllegalArgumentException("the range of MsgSeqNums is reversed: " + begin + " to " + end);
        }
        return with("seqNums " + begin + " to " + end, builder -> builder.seqNumRange(begin, end));
    }

    /**
     * Messages with MsgSeqNums from one on.
     *
     * @param begin the lowest number, included
     * @return the query
     */
    public Query seqNumsFrom(int begin) {
        return seqNums(begin, Integer.MAX_VALUE);
    }

    /**
     * Messages with a range of connection message ids of one class; takes the place of a condition on classes.
     *
     * @param first the lowest id, included
     * @param last the highest id, included
     * @return the query
     * @throws IllegalArgumentException when the two are not of one class, or {@code last} is below {@code first}
     */
    public Query ids(int first, int last) {
        if (last < first || MessageClass.of(first) == null || MessageClass.of(first) != MessageClass.of(last)) {
            throw new IllegalArgumentException("the ids " + first + " to " + last + " are no range of one class");
        }
        return with("ids " + first + " to " + last, builder -> builder.messageIdRange(first, last));
    }

    /**
     * Messages with uniform message ids from one on.
     *
     * @param first the lowest id, included
     * @return the query
     */
    public Query uniformIdsFrom(int first) {
        return with("uniform ids from " + first, builder -> builder.numeric(MessageNumericField.UNIFORM_ID,
                NumericFieldFilter.betweenLongs(first - 1L, Long.MAX_VALUE)));
    }

    /**
     * Messages from a time on.
     *
     * @param time the earliest time, included, as exact as the table's unit
     * @return the query
     */
    public Query from(Instant time) {
        Objects.requireNonNull(time, "time");
        return new Query(steps, time, until);
    }

    /**
     * Messages up to a time.
     *
     * @param time the latest time, included, as exact as the table's unit
     * @return the query
     */
    public Query until(Instant time) {
        Objects.requireNonNull(time, "time");
        return new Query(steps, from, time);
    }

    /**
     * Messages of some MsgTypes.
     *
     * @param types the MsgTypes, at least one
     * @return the query
     * @throws IllegalArgumentException when there is none
     */
    public Query types(String... types) {
        if (types.length == 0) {
            throw new IllegalArgumentException("no MsgType is given: without this condition all are wanted");
        }
        StringFieldFilter filter = StringFieldFilter.anyOf(types);
        return with("types " + filter, builder -> builder.string(MessageStringField.MSG_TYPE, filter));
    }

    /**
     * All messages but those of some MsgTypes.
     *
     * @param types the MsgTypes
     * @return the query
     */
    public Query withoutTypes(String... types) {
        List<String> given = List.of(types);
        return with("without types " + given,
                builder -> builder.excludeMsgTypes(given.toArray(String[]::new)));
    }

    /**
     * Messages by their PossDup flag.
     *
     * @param flag true for possible duplicates alone, false for all others alone
     * @return the query
     */
    public Query possDup(boolean flag) {
        return with("possDup " + flag, builder -> builder.possDup(flag));
    }

    /**
     * Messages that were out of sequence, or the others.
     *
     * @param flag true for those alone, false for all others alone
     * @return the query
     */
    public Query outOfSequence(boolean flag) {
        return with("outOfSequence " + flag, builder -> builder.numeric(
                MessageNumericField.OUT_OF_SEQUENCE, NumericFieldFilter.anyOfLongs(flag ? 1 : 0)));
    }

    /**
     * Messages with one of some values of an indexed text.
     *
     * @param name the text's name in the layout
     * @param values the values, at least one
     * @return the query
     */
    public Query text(String name, String... values) {
        return text(name, StringFieldFilter.anyOf(values));
    }

    /**
     * Messages whose indexed text meets a filter.
     *
     * @param name the text's name in the layout
     * @param filter what its value must meet
     * @return the query
     */
    public Query text(String name, StringFieldFilter filter) {
        Objects.requireNonNull(name, "name");
        Objects.requireNonNull(filter, "filter");
        return with("text " + name + " " + filter, builder -> builder.string(name, filter));
    }

    /**
     * Messages whose indexed number meets a filter.
     *
     * @param name the number's name in the layout
     * @param filter what its value must meet
     * @return the query
     */
    public Query number(String name, NumericFieldFilter filter) {
        Objects.requireNonNull(name, "name");
        Objects.requireNonNull(filter, "filter");
        return with("number " + name + " " + filter, builder -> builder.numeric(name, filter));
    }

    /** The conditions as the library takes them, for a table. */
    MessageQueryConditions conditions(TableConfiguration table, TimeUnit unit) {
        MessageQueryConditionsBuilder builder = MessageQueryConditions.builder(table);
        steps.forEach(step -> step.condition().tell(builder));
        tellTimes(builder, unit);
        return builder.build();
    }

    private void tellTimes(MessageQueryConditionsBuilder builder, TimeUnit unit) {
        long first = Long.MIN_VALUE;
        long last = Long.MAX_VALUE;
        if (from != null) {
            first = Times.toStamp(from, unit);
            // The stamp of a time between two of the unit is that of the one before it.
            first += Times.toInstant(first, unit).isBefore(from) ? 1 : 0;
            builder.startingTime(first);
        }
        if (until != null) {
            last = Times.toStamp(until, unit);
            builder.endingTime(last);
        }
        if (first == 0 || last == 0) {  // which the library takes for no condition
            NumericFieldFilter between = NumericFieldFilter.anyOfLongs(first, last).orBetween(first, last);
            builder.numeric(MessageNumericField.TIMESTAMP, between).startingTime(0).endingTime(0);
        }
    }

    /**
     * Says what is wanted.
     *
     * @return the conditions in words
     */
    @Override
    public String toString() {
        List<String> words = new ArrayList<>(steps.stream().map(Step::words).toList());
        if (from != null) {
            words.add("from " + from);
        }
        if (until != null) {
            words.add("until " + until);
        }
        return words.isEmpty() ? "all messages" : String.join(", ", words);
    }

    private Query with(String words, Condition condition) {
        List<Step> longer = new ArrayList<>(steps);
        longer.add(new Step(words, condition));
        return new Query(List.copyOf(longer), from, until);
    }
}
