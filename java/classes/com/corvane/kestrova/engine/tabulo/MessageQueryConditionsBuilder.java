package com.corvane.kestrova.engine.tabulo;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.EnumMap;
import java.util.LinkedHashMap;
import java.util.List;
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
     * @param end the highest number, inclusive
     * @return this builder
     * @throws IllegalArgumentException when {@code end} is below {@code begin}
     */
    public MessageQueryConditionsBuilder seqNumRange(int begin, int end) {
        refuseReversed("MsgSeqNums", begin, end);
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
     * a class. Use {@link #messageIdRanges(int[], int[])} for more than one class.
     *
     * @param start the lowest id, inclusive; not negative
     * @param end the highest id, inclusive
     * @return this builder
     * @throws IllegalArgumentException when {@code end} is below {@code start}, when an id is negative, or when the two
     *         are of different classes
     */
    public MessageQueryConditionsBuilder messageIdRange(int start, int end) {
        refuseReversed("connection message ids", start, end);
        MessageClass messageClass = classOf(start);
        if (classOf(end) != messageClass) {
            throw new IllegalArgumentException("the ids " + start + " to " + end
                    + " are of more than one class; use messageIdRanges, with a range for each class: "
                    + MessageClass.ranges());
        }
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
     * and one with an end id alone from its first. Of several start or end ids of a class the last one holds. A range
     * of a single id is refused: use {@link #messageIdRange(int, int)} for it.
     *
     * @param starts the lowest ids, inclusive; at least one
     * @param ends the highest ids, inclusive; they need not stand in the order of {@code starts}
     * @return this builder
     * @throws IllegalArgumentException when there is no start id, when an id is negative, or when the end id of a class
     *         is not above its start id
     */
    public MessageQueryConditionsBuilder messageIdRanges(int[] starts, int[] ends) {
        if (starts.length == 0) {
            throw new IllegalArgumentException("no range begins: give at least one start id");
        }
        Map<MessageClass, Integer> first = lastOfEachClass(starts);
        lastOfEachClass(ends).forEach((messageClass, end) -> {
            int start = first.getOrDefault(messageClass, messageClass.firstId());
            refuseReversed("connection message ids", start, end);
            if (start == end) {
                throw new IllegalArgumentException("the range of the single id " + start
                        + " would be left out; use messageIdRange for a single id");
            }
        });
        startMessageIds = starts.clone();
        endMessageIds = ends.clone();
        startMessageId = null;
        endMessageId = null;
        return this;
    }

    /**
     * Selects all messages of some classes, by their connection message ids.
     *
     * @param classes the classes, at least one
     * @return this builder
     * @throws IllegalArgumentException when there is none
     */
    public MessageQueryConditionsBuilder messageClasses(MessageClass... classes) {
        if (classes.length == 0) {
            throw new IllegalArgumentException("no class is given: without this condition all are selected");
        }
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
     * @param msgTypes the MsgTypes, of at most five characters each and none of them null; none at all leaves nothing
     *        out
     * @return this builder
     * @throws IllegalArgumentException when one of them is null
     */
    public MessageQueryConditionsBuilder excludeMsgTypes(String... msgTypes) {
        if (Arrays.asList(msgTypes).contains(null)) {
            throw new IllegalArgumentException("an excluded MsgType is null");
        }
        excludedMsgTypes = msgTypes.length == 0 ? null : msgTypes.clone();
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
     * @throws IllegalArgumentException when the table has no such string field, or when the filter is null, has nothing in it
     *         or a range whose minimum is above its maximum
     */
    public MessageQueryConditionsBuilder string(String name, StringFieldFilter filter) {
        int field = configuration.stringFieldId(name);
        stringFilters.put(field, checked(filter));
        return this;
    }

    /**
     * Filters on a string field that every message has.
     *
     * @param field the field
     * @param filter what its value must meet
     * @return this builder
     * @throws IllegalArgumentException when the filter is null, has nothing in it or a range whose minimum is above its
     *         maximum
     */
    public MessageQueryConditionsBuilder string(MessageStringField field, StringFieldFilter filter) {
        stringFilters.put(configuration.stringFieldId(field), checked(filter));
        return this;
    }

    /**
     * Filters on an indexed numeric field.
     *
     * @param name the field's configured name
     * @param filter what its value must meet
     * @return this builder
     * @throws IllegalArgumentException when the table has no such numeric field, or when the filter is null, has nothing in it
     *         or a range whose minimum is above its maximum
     */
    public MessageQueryConditionsBuilder numeric(String name, NumericFieldFilter filter) {
        int field = configuration.numericFieldId(name);
        numericFilters.put(field, checked(filter));
        return this;
    }

    /**
     * Filters on a number of the metadata.
     *
     * @param field the field
     * @param filter what its value must meet
     * @return this builder
     * @throws IllegalArgumentException when the filter is null, has nothing in it or a range whose minimum is above its
     *         maximum
     */
    public MessageQueryConditionsBuilder numeric(MessageNumericField field, NumericFieldFilter filter) {
        numericFilters.put(configuration.numericFieldId(field), checked(filter));
        return this;
    }

    /**
     * Ends the conditions; the builder may be used on without changing them.
     *
     * @return the conditions
     * @throws IllegalArgumentException when the ending time is before the starting time
     */
    public MessageQueryConditions build() {
        if (startingTime != null && endingTime != null && startingTime != 0 && endingTime != 0) {
            refuseReversed("time stamps", startingTime, endingTime);
        }
        return new MessageQueryConditions(new MessageQueryConditionsBuilder(this));
    }

    TableConfiguration configuration() {
        return configuration;
    }

    /** What is given, condition by condition. */
    @Override
    public String toString() {
        List<String> given = new ArrayList<>();
        add(given, "backward", backward);
        add(given, "seqNums", range(beginSeqNum, endSeqNum));
        add(given, "messageIds", range(startMessageId, endMessageId));
        if (startMessageIds != null) {
            given.add("messageIdRanges from " + Arrays.toString(startMessageIds) + " to "
                    + Arrays.toString(endMessageIds));
        }
        if (excludedMsgTypes != null) {
            given.add("excludedMsgTypes " + Arrays.toString(excludedMsgTypes));
        }
        add(given, "startingTime", startingTime);
        add(given, "endingTime", endingTime);
        add(given, "possDup", possDup);
        stringFilters.forEach((field, filter) -> given.add("string field " + field + " " + filter));
        numericFilters.forEach((field, filter) -> given.add("numeric field " + field + " " + filter));
        return given.isEmpty() ? "all messages" : String.join(", ", given);
    }

    private static void add(List<String> given, String name, Object value) {
        if (value != null) {
            given.add(name + " " + value);
        }
    }

    private static String range(Integer first, Integer last) {
        return first == null || last == null ? null : first + " to " + last;
    }

    private static void refuseReversed(String what, long first, long last) {
        if (last < first) {
            throw new IllegalArgumentException("the range of " + what + " is reversed: " + first + " to " + last);
        }
    }

    private static MessageClass classOf(int id) {
        MessageClass messageClass = MessageClass.of(id);
        if (messageClass == null) {
            throw new IllegalArgumentException("the connection message id " + id + " is of no class: "
                    + MessageClass.ranges());
        }
        return messageClass;
    }

    private static Map<MessageClass, Integer> lastOfEachClass(int[] ids) {
        Map<MessageClass, Integer> last = new EnumMap<>(MessageClass.class);
        for (int id : ids) {
            last.put(classOf(id), id);
        }
        return last;
    }

    private static StringFieldFilter checked(StringFieldFilter filter) {
        if (filter == null) {
            throw new IllegalArgumentException("the filter is null");
        }
        filter.check();
        return filter;
    }

    private static NumericFieldFilter checked(NumericFieldFilter filter) {
        if (filter == null) {
            throw new IllegalArgumentException("the filter is null");
        }
        filter.check();
        return filter;
    }
}
