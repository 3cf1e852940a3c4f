package com.corvane.kestrova.engine.tabulo;

import java.util.ArrayList;
import java.util.List;

/**
 * What a query asks of one string field: the value is one of the given ones, or lies inside one of the given ranges, or
 * is absent and absent values were admitted. A filter with nothing in it selects nothing.
 *
 * <p>A text that is stored and empty is a value like any other, and is admitted with absent ones. Objects are
 * immutable; each method gives a new one.
 */
public final class StringFieldFilter {
    private final List<String> values;
    private final List<String> minimums;
    private final List<String> maximums;
    private final boolean includeNull;
    private final boolean ignoreCase;

    private StringFieldFilter(List<String> values, List<String> minimums, List<String> maximums, boolean includeNull,
            boolean ignoreCase) {
        this.values = values;
        this.minimums = minimums;
        this.maximums = maximums;
        this.includeNull = includeNull;
        this.ignoreCase = ignoreCase;
    }

    /**
     * Selects values.
     *
     * @param accepted the accepted values, none of them null; may be empty when ranges follow
     * @return the filter
     */
    public static StringFieldFilter anyOf(String... accepted) {
        return new StringFieldFilter(List.of(accepted), List.of(), List.of(), false, false);
    }

    /**
     * Selects values of a range, compared byte by byte, always with regard to case.
     *
     * @param minimum lower bound, itself not selected; null for none
     * @param maximum upper bound, itself not selected; null for none
     * @return the filter
     */
    public static StringFieldFilter between(String minimum, String maximum) {
        return anyOf().orBetween(minimum, maximum);
    }

    /**
     * Selects values of one more range, as {@link #between(String, String)} does.
     *
     * @param minimum lower bound, itself not selected; null for none
     * @param maximum upper bound, itself not selected; null for none
     * @return the wider filter
     */
    public StringFieldFilter orBetween(String minimum, String maximum) {
        return new StringFieldFilter(values, with(minimums, minimum), with(maximums, maximum), includeNull, ignoreCase);
    }

    /**
     * Also selects messages that lack the field or have an empty text in it. Whole blocks can then no longer be skipped
     * because of this filter.
     *
     * @return the wider filter
     */
    public StringFieldFilter orAbsent() {
        return new StringFieldFilter(values, minimums, maximums, true, ignoreCase);
    }

    /**
     * Compares the accepted values without regard to the case of ASCII letters; ranges keep regarding it. Whole blocks
     * can then no longer be skipped because of this filter.
     *
     * @return the wider filter
     */
    public StringFieldFilter ignoringCase() {
        return new StringFieldFilter(values, minimums, maximums, includeNull, true);
    }

    String[] values() {
        return values.toArray(new String[0]);
    }

    String[] minimums() {
        return minimums.toArray(new String[0]);
    }

    String[] maximums() {
        return maximums.toArray(new String[0]);
    }

    boolean includeNull() {
        return includeNull;
    }

    boolean ignoreCase() {
        return ignoreCase;
    }

    /** List.copyOf would refuse the null of an open bound. */
    private static List<String> with(List<String> bounds, String bound) {
        List<String> longer = new ArrayList<>(bounds);
        longer.add(bound);
        return longer;
    }
}
