package com.corvane.kestrova.engine.tabulo;

import java.util.Map;
import java.util.function.Function;

/**
 * The conditions of a query over a message table: a message is selected when it meets all that are given. Without any
 * condition every message is.
 *
 * <p>The library reads the conditions while the query is opened, through the methods whose names begin with "get", and
 * keeps nothing of them afterwards; a null result means that the condition is not given. Any other class with the same
 * methods serves as well. Objects are immutable and may be used for many queries of tables with the same configuration.
 */
public final class MessageQueryConditions {
    private final MessageQueryConditionsBuilder given;

    MessageQueryConditions(MessageQueryConditionsBuilder given) {
        this.given = given;
    }

    /**
     * Begins conditions for one table.
     *
     * @param configuration the table's configuration, by which filters find their fields
     * @return a builder without any condition
     */
    public static MessageQueryConditionsBuilder builder(TableConfiguration configuration) {
        return new MessageQueryConditionsBuilder(configuration);
    }

    /**
     * Called by the library: the direction of reading.
     *
     * @return true for from the end to the beginning
     */
    public Boolean getIterateBackward() {
        return given.backward;
    }

    /**
     * Called by the library: the lowest MsgSeqNum.
     *
     * @return the number, inclusive, or null
     */
    public Integer getBeginSeqNum() {
        return given.beginSeqNum;
    }

    /**
     * Called by the library: the highest MsgSeqNum.
     *
     * @return the number, inclusive, or null
     */
    public Integer getEndSeqNum() {
        return given.endSeqNum;
    }

    /**
     * Called by the library: the ids of the string fields that have a filter.
     *
     * @return the ids, or null when there is no filter
     */
    public int[] getStringFieldsIds() {
        return ids(given.stringFilters);
    }

    /**
     * Called by the library: the accepted values of a string filter.
     *
     * @param fieldId the field's id
     * @return the values, or null when that field has no filter
     */
    public String[] getStringFieldValues(int fieldId) {
        return ask(given.stringFilters, fieldId, StringFieldFilter::values);
    }

    /**
     * Called by the library: the lower bounds of a string filter's ranges.
     *
     * @param fieldId the field's id
     * @return one element for each range, null for an open bound; or null when that field has no filter
     */
    public String[] getStringFieldMinValues(int fieldId) {
        return ask(given.stringFilters, fieldId, StringFieldFilter::minimums);
    }

    /**
     * Called by the library: the upper bounds of a string filter's ranges.
     *
     * @param fieldId the field's id
     * @return one element for each range, null for an open bound; or null when that field has no filter
     */
    public String[] getStringFieldMaxValues(int fieldId) {
        return ask(given.stringFilters, fieldId, StringFieldFilter::maximums);
    }

    /**
     * Called by the library: whether a string filter admits absent values.
     *
     * @param fieldId the field's id
     * @return the answer, or null when that field has no filter
     */
    public Boolean getStringFieldIncludeNull(int fieldId) {
        return ask(given.stringFilters, fieldId, StringFieldFilter::includeNull);
    }

    /**
     * Called by the library: whether a string filter disregards the case of its values.
     *
     * @param fieldId the field's id
     * @return the answer, or null when that field has no filter
     */
    public Boolean getStringFieldIgnoreCase(int fieldId) {
        return ask(given.stringFilters, fieldId, StringFieldFilter::ignoreCase);
    }

    /**
     * Called by the library: the lowest connection message ids, at most one for each class.
     *
     * @return the ids, inclusive, or null
     */
    public int[] getStartMessageIds() {
        return given.startMessageIds == null ? null : given.startMessageIds.clone();
    }

    /**
     * Called by the library: the highest connection message ids, at most one for each class.
     *
     * @return the ids, inclusive, or null
     */
    public int[] getEndMessageIds() {
        return given.endMessageIds == null ? null : given.endMessageIds.clone();
    }

    /**
     * Called by the library: the lowest connection message id of a single range.
     *
     * @return the id, inclusive, or null
     */
    public Integer getStartMessageId() {
        return given.startMessageId;
    }

    /**
     * Called by the library: the highest connection message id of a single range.
     *
     * @return the id, inclusive, or null
     */
    public Integer getEndMessageId() {
        return given.endMessageId;
    }

    /**
     * Called by the library: the MsgTypes that are not selected.
     *
     * @return the MsgTypes, or null
     */
    public String[] getExcludeMsgTypes() {
        return given.excludedMsgTypes == null ? null : given.excludedMsgTypes.clone();
    }

    /**
     * Called by the library: the earliest time stamp.
     *
     * @return the time stamp, inclusive, or null
     */
    public Long getStartingTime() {
        return given.startingTime;
    }

    /**
     * Called by the library: the latest time stamp.
     *
     * @return the time stamp, inclusive, or null
     */
    public Long getEndingTime() {
        return given.endingTime;
    }

    /**
     * Called by the library: which messages are selected by their PossDup flag.
     *
     * @return true for possible duplicates only, false for all others only, or null for both
     */
    public Boolean getIsPossDupFlag() {
        return given.possDup;
    }

    /**
     * Called by the library: the ids of the numeric fields that have a filter.
     *
     * @return the ids, or null when there is no filter
     */
    public int[] getNumericFieldsIds() {
        return ids(given.numericFilters);
    }

    /**
     * Called by the library: the type of a numeric filter's values.
     *
     * @param fieldId the field's id
     * @return 1 for double, 2 for long, or null when that field has no filter
     */
    public Integer getNumericFieldValuesType(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::type);
    }

    /**
     * Called by the library: whether a numeric filter admits absent values.
     *
     * @param fieldId the field's id
     * @return the answer, or null when that field has no filter
     */
    public Boolean getNumericFieldIncludeNull(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::includeNull);
    }

    /**
     * Called by the library: the lower bounds of the intervals of a filter on doubles.
     *
     * @param fieldId the field's id
     * @return one element for each interval, or null when that field has no filter
     */
    public double[] getDoubleNumericFieldMinValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::doubleMinimums);
    }

    /**
     * Called by the library: the upper bounds of the intervals of a filter on doubles.
     *
     * @param fieldId the field's id
     * @return one element for each interval, or null when that field has no filter
     */
    public double[] getDoubleNumericFieldMaxValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::doubleMaximums);
    }

    /**
     * Called by the library: the accepted values of a filter on doubles.
     *
     * @param fieldId the field's id
     * @return the values, or null when that field has no filter
     */
    public double[] getDoubleNumericFieldValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::doubleValues);
    }

    /**
     * Called by the library: the lower bounds of the intervals of a filter on longs.
     *
     * @param fieldId the field's id
     * @return one element for each interval, or null when that field has no filter
     */
    public long[] getLongNumericFieldMinValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::longMinimums);
    }

    /**
     * Called by the library: the upper bounds of the intervals of a filter on longs.
     *
     * @param fieldId the field's id
     * @return one element for each interval, or null when that field has no filter
     */
    public long[] getLongNumericFieldMaxValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::longMaximums);
    }

    /**
     * Called by the library: the accepted values of a filter on longs.
     *
     * @param fieldId the field's id
     * @return the values, or null when that field has no filter
     */
    public long[] getLongNumericFieldValues(int fieldId) {
        return ask(given.numericFilters, fieldId, NumericFieldFilter::longValues);
    }

    /**
     * Refuses a table with other fields than those that the conditions were built for: their filters would look at
     * other fields than was meant.
     *
     * @param table the configuration that the table was opened with; null, and nothing is refused, when it is not known
     * @throws IllegalArgumentException when the names of the string or the numeric fields differ
     */
    public void refuseOtherFields(TableConfiguration table) {
        TableConfiguration own = given.configuration();
        if (table != null && own != null && !(own.stringFieldsNames().equals(table.stringFieldsNames())
                && own.numericFieldsNames().equals(table.numericFieldsNames()))) {
            throw new IllegalArgumentException("the conditions were built for string fields " + own.stringFieldsNames()
                    + " and numeric fields " + own.numericFieldsNames() + ", and the table has string fields "
                    + table.stringFieldsNames() + " and numeric fields " + table.numericFieldsNames());
        }
    }

    /**
     * Says what is selected.
     *
     * @return the conditions, one after another
     */
    @Override
    public String toString() {
        return given.toString();
    }

    private static int[] ids(Map<Integer, ?> filters) {
        return filters.isEmpty() ? null : filters.keySet().stream().mapToInt(Integer::intValue).toArray();
    }

    private static <F, R> R ask(Map<Integer, F> filters, int fieldId, Function<F, R> question) {
        F filter = filters.get(fieldId);
        return filter == null ? null : question.apply(filter);
    }
}
