package com.corvane.kestrova.engine.tabulo;

import java.util.LinkedHashMap;
import java.util.Map;

/**
 * Collects the conditions of a query step by step; a condition that is given twice holds as it was given last.
 *
 * @see MessageQueryConditions#builder(TableConfiguration)
 */
public final class MessageQueryConditionsBuilder {
    private final TableConfiguration configuration;
    final Map<Integer, StringFieldFilter> stringFilters = new LinkedHashMap<>();
    final Map<Integer, NumericFieldFilter> numericFilters = new LinkedHashMap<>();
    Boolean backward;
    Integer beginSeqNum;
    Integer endSeqNum;
    int[] startMessageIds;
    int[] endMessageIds;
    Integer startMessageId;
    Integer endMessageId;
    String[] excludedMsgTypes;
    Long startingTime;
    Long endingTime;
    Boolean possDup;

    MessageQueryConditionsBuilder(TableConfiguration configuration) {
        this.configuration = configuration;
    }

    private MessageQueryConditionsBuilder(MessageQueryConditionsBuilder other) {
        this(other.configuration);
        stringFilters.putAll(other.stringFilters);
        numericFilters.putAll(other.numericFilters);
        backward = other.backward;
        beginSeqNum = other.beginSeqNum;
        endSeqNum = other.endSeqNum;
        startMessageIds = other.startMessageIds;
        endMessageIds = other.endMessageIds;
        startMessageId = other.startMessageId;
        endMessageId = other.endMessageId;
        excludedMsgTypes = other.excludedMsgTypes;
        startingTime = other.startingTime;
        endingTime = other.endingTime;
        possDup = other.possDup;
    }

    /**
     * Reads from the table's end to its beginning.
     *
     * @return this builder
     */
    public MessageQueryConditionsBuilder backward() {
        backward = true;
        return this;
    }

    /**
     * Selects a range of MsgSeqNums.
     *
     * @param begin the lowest number, inclusive; pending messages have negative numbers
     * @param end the highest number, inclusive; below {@code begin} the condition is not in force
     * @return this builder
     */
    public MessageQueryConditionsBuilder seqNumRange(int begin, int end) {
        beginSeqNum = begin;
        endSeqNum = end;
        return this;
    }

    /**
     * Selects the MsgSeqNums from one on.
     *
     * @param begin the lowest number, inclusive
     * @return this builder
     */
    public MessageQueryConditionsBuilder seqNumFrom(int begin) {
        return seqNumRange(begin, Integer.MAX_VALUE);
    }

    /**
     * Selects one range of connection message ids, instead of ranges per class.
     *
     * <p>Both ends must lie in one class (see {@link MessageClass}): closed blocks of messages are compared within
     * a class, so a range whose ends lie in two classes selects nothing from them. Use
     * {@link #messageIdRanges(int[], int[])} for more than one class.
     *
     * @param start the lowest id, inclusive; not negative
     * @param end the highest id, inclusive
     * @return this builder
     */
    public MessageQueryConditionsBuilder messageIdRange(int start, int end) {
        startMessageId = start;
        endMessageId = end;
        startMessageIds = null;
        endMessageIds = null;
        return this;
    }

    /**
     * Selects at most one range of connection message ids in each class, instead of a single range. Messages of the
     * classes without any id here are not selected.
     *
     * <p>The class of each id is told by its value. A class with a start id and no end id is taken up to its last id,
     * and one with an end id alone from its first. A range whose start is its end is dropped: use
     * {@link #messageIdRange(int, int)} for a single id. When no class is left with a start id there is no condition.
     *
     * @param starts the lowest ids, inclusive
     * @param ends the highest ids, inclusive; they need not stand in the order of {@code starts}
     * @return this builder
     */
    public MessageQueryConditionsBuilder messageIdRanges(int[] starts, int[] ends) {
        startMessageIds = starts.clone();
        endMessageIds = ends.clone();
        startMessageId = null;
        endMessageId = null;
        return this;
    }

    /**
     * Selects all messages of some classes, by their connection message ids.
     *
     * @param classes the classes; without any there is no condition
     * @return this builder
     */
    public MessageQueryConditionsBuilder messageClasses(MessageClass... classes) {
        int[] starts = new int[classes.length];
        int[] ends = new int[classes.length];
        for (int i = 0; i < classes.length; ++i) {
            starts[i] = classes[i].firstId();
            ends[i] = classes[i].lastId();
        }
        return messageIdRanges(starts, ends);
    }

    /**
     * Leaves out messages of some MsgTypes.
     *
     * @param msgTypes the MsgTypes, of at most five characters each and none of them null
     * @return this builder
     */
    public MessageQueryConditionsBuilder excludeMsgTypes(String... msgTypes) {
        excludedMsgTypes = msgTypes.clone();
        return this;
    }

    /**
     * Selects messages from a time on.
     *
     * @param timestamp the earliest time stamp, inclusive, in the unit in which the messages were written; 0 is no
     *        condition
     * @return this builder
     */
    public MessageQueryConditionsBuilder startingTime(long timestamp) {
        startingTime = timestamp;
        return this;
    }

    /**
     * Selects messages up to a time.
     *
     * @param timestamp the latest time stamp, inclusive, in the unit in which the messages were written; 0 is no
     *        condition
     * @return this builder
     */
    public MessageQueryConditionsBuilder endingTime(long timestamp) {
        endingTime = timestamp;
        return this;
    }

    /**
     * Selects messages by their PossDup flag.
     *
     * @param flag true for possible duplicates only, false for all others only
     * @return this builder
     */
    public MessageQueryConditionsBuilder possDup(boolean flag) {
        possDup = flag;
        return this;
    }

    /**
     * Filters on an indexed string field.
     *
     * @param name the field's configured name
     * @param filter what its value must meet
     * @return this builder
     * @throws IllegalArgumentException when the table has no such string field
     */
    public MessageQueryConditionsBuilder string(String name, StringFieldFilter filter) {
        stringFilters.put(configuration.stringFieldId(name), filter);
        return this;
    }

    /**
     * Filters on a string field that every message has.
     *
     * @param field the field
     * @param filter what its value must meet
     * @return this builder
     */
    public MessageQueryConditionsBuilder string(MessageStringField field, StringFieldFilter filter) {
        stringFilters.put(configuration.stringFieldId(field), filter);
        return this;
    }

    /**
     * Filters on an indexed numeric field.
     *
     * @param name the field's configured name
     * @param filter what its value must meet
     * @return this builder
     * @throws IllegalArgumentException when the table has no such numeric field
     */
    public MessageQueryConditionsBuilder numeric(String name, NumericFieldFilter filter) {
        numericFilters.put(configuration.numericFieldId(name), filter);
        return this;
    }

    /**
     * Filters on a number of the metadata.
     *
     * @param field the field
     * @param filter what its value must meet
     * @return this builder
     */
    public MessageQueryConditionsBuilder numeric(MessageNumericField field, NumericFieldFilter filter) {
        numericFilters.put(configuration.numericFieldId(field), filter);
        return this;
    }

    /**
     * Ends the conditions; the builder may be used on without changing them.
     *
     * @return the conditions
     */
    public MessageQueryConditions build() {
        return new MessageQueryConditions(new MessageQueryConditionsBuilder(this));
    }
}
