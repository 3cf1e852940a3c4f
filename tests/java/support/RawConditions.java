package com.corvane.kestrova.engine.tabulo.jni;

import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.function.Consumer;
import java.util.function.Function;

/**
 * Conditions of the tests' own: the library must ask for nothing but these methods. Whatever is not set is null. Every
 * call is recorded, and one call can be told to throw.
 */
public class RawConditions {
    Boolean backward;
    Integer beginSeqNum;
    Integer endSeqNum;
    int[] stringIds;
    int[] startIds;
    int[] endIds;
    Integer startId;
    Integer endId;
    String[] excluded;
    Long startingTime;
    Long endingTime;
    Boolean possDup;
    int[] numericIds;
    final Map<Integer, StringFilter> strings = new LinkedHashMap<>();
    final Map<Integer, NumericFilter> numerics = new LinkedHashMap<>();
    final List<String> calls = new ArrayList<>();
    String throwing;

    /** What is asked of one string field. */
    static final class StringFilter {
        String[] values;
        String[] minimums;
        String[] maximums;
        Boolean includeNull;
        Boolean ignoreCase;
    }

    /** What is asked of one numeric field. */
    static final class NumericFilter {
        Integer type;
        Boolean includeNull;
        double[] doubleMinimums;
        double[] doubleMaximums;
        double[] doubleValues;
        long[] longMinimums;
        long[] longMaximums;
        long[] longValues;
    }

    static RawConditions of(Consumer<RawConditions> settings) {
        RawConditions conditions = new RawConditions();
        settings.accept(conditions);
        return conditions;
    }

    /** Conditions with one string filter. */
    static RawConditions string(int id, Consumer<StringFilter> settings) {
        return new RawConditions().andString(id, settings);
    }

    /** Conditions with one filter on doubles. */
    static RawConditions doubles(int id, Consumer<NumericFilter> settings) {
        return new RawConditions().andNumeric(id, 1, settings);
    }

    /** Conditions with one filter on longs. */
    static RawConditions longs(int id, Consumer<NumericFilter> settings) {
        return new RawConditions().andNumeric(id, 2, settings);
    }

    RawConditions andString(int id, Consumer<StringFilter> settings) {
        StringFilter filter = new StringFilter();
        settings.accept(filter);
        strings.put(id, filter);
        stringIds = strings.keySet().stream().mapToInt(Integer::intValue).toArray();
        return this;
    }

    RawConditions andNumeric(int id, Integer type, Consumer<NumericFilter> settings) {
        NumericFilter filter = new NumericFilter();
        filter.type = type;
        settings.accept(filter);
        numerics.put(id, filter);
        numericIds = numerics.keySet().stream().mapToInt(Integer::intValue).toArray();
        return this;
    }

    private <T> T answer(String call, T answer) {
        calls.add(call);
        if (call.equals(throwing)) {
            throw new IllegalStateException("thrown by " + call);
        }
        return answer;
    }

    private <T> T ofString(String getter, int id, Function<StringFilter, T> question) {
        return answer(getter + " " + id, question.apply(strings.getOrDefault(id, new StringFilter())));
    }

    private <T> T ofNumeric(String getter, int id, Function<NumericFilter, T> question) {
        return answer(getter + " " + id, question.apply(numerics.getOrDefault(id, new NumericFilter())));
    }

    public Boolean getIterateBackward() {
        return answer("getIterateBackward", backward);
    }

    public Integer getBeginSeqNum() {
        return answer("getBeginSeqNum", beginSeqNum);
    }

    public Integer getEndSeqNum() {
        return answer("getEndSeqNum", endSeqNum);
    }

    public int[] getStringFieldsIds() {
        return answer("getStringFieldsIds", stringIds);
    }

    public String[] getStringFieldValues(int id) {
        return ofString("getStringFieldValues", id, filter -> filter.values);
    }

    public String[] getStringFieldMinValues(int id) {
        return ofString("getStringFieldMinValues", id, filter -> filter.minimums);
    }

    public String[] getStringFieldMaxValues(int id) {
        return ofString("getStringFieldMaxValues", id, filter -> filter.maximums);
    }

    public Boolean getStringFieldIncludeNull(int id) {
        return ofString("getStringFieldIncludeNull", id, filter -> filter.includeNull);
    }

    public Boolean getStringFieldIgnoreCase(int id) {
        return ofString("getStringFieldIgnoreCase", id, filter -> filter.ignoreCase);
    }

    public int[] getStartMessageIds() {
        return answer("getStartMessageIds", startIds);
    }

    public int[] getEndMessageIds() {
        return answer("getEndMessageIds", endIds);
    }

    public Integer getStartMessageId() {
        return answer("getStartMessageId", startId);
    }

    public Integer getEndMessageId() {
        return answer("getEndMessageId", endId);
    }

    public String[] getExcludeMsgTypes() {
        return answer("getExcludeMsgTypes", excluded);
    }

    public Long getStartingTime() {
        return answer("getStartingTime", startingTime);
    }

    public Long getEndingTime() {
        return answer("getEndingTime", endingTime);
    }

    public Boolean getIsPossDupFlag() {
        return answer("getIsPossDupFlag", possDup);
    }

    public int[] getNumericFieldsIds() {
        return answer("getNumericFieldsIds", numericIds);
    }

    public Integer getNumericFieldValuesType(int id) {
        return ofNumeric("getNumericFieldValuesType", id, filter -> filter.type);
    }

    public Boolean getNumericFieldIncludeNull(int id) {
        return ofNumeric("getNumericFieldIncludeNull", id, filter -> filter.includeNull);
    }

    public double[] getDoubleNumericFieldMinValues(int id) {
        return ofNumeric("getDoubleNumericFieldMinValues", id, filter -> filter.doubleMinimums);
    }

    public double[] getDoubleNumericFieldMaxValues(int id) {
        return ofNumeric("getDoubleNumericFieldMaxValues", id, filter -> filter.doubleMaximums);
    }

    public double[] getDoubleNumericFieldValues(int id) {
        return ofNumeric("getDoubleNumericFieldValues", id, filter -> filter.doubleValues);
    }

    public long[] getLongNumericFieldMinValues(int id) {
        return ofNumeric("getLongNumericFieldMinValues", id, filter -> filter.longMinimums);
    }

    public long[] getLongNumericFieldMaxValues(int id) {
        return ofNumeric("getLongNumericFieldMaxValues", id, filter -> filter.longMaximums);
    }

    public long[] getLongNumericFieldValues(int id) {
        return ofNumeric("getLongNumericFieldValues", id, filter -> filter.longValues);
    }
}
