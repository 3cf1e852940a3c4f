package com.corvane.kestrova.engine.tabulo;

import java.util.ArrayList;
import java.util.List;

/**
 * What a query asks of one string field: the value is one of the given ones, or lies inside one of the given ranges, or
 * is absent and absent values were admitted. A filter with nothing in it is refused by the builder of conditions.
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

    /**
     * Says what the filter selects.
     *
     * @return the values and ranges
     */
    @Override
    public String toString() {
        StringBuilder text = new StringBuilder("in ").append(values);
        for (int i = 0; i < minimums.size(); ++i) {
            text.append(" or between ").append(minimums.get(i)).append(" and ").append(maximums.get(i));
        }
        return text.append(includeNull ? " or absent" : "").append(ignoreCase ? ", ignoring case" : "").toString();
    }

    /** Refuses a filter that can only be a mistake: one with nothing in it, or with a range that is reversed. */
    void check() {
        if (values.isEmpty() && minimums.isEmpty() && !includeNull) {
            throw new IllegalArgumentException("the filter has nothing in it, and would select nothing");
        }
        for (int i = 0; i < minimums.size(); ++i) {
            String minimum = minimums.get(i);
            String maximum = maximums.get(i);
            if (minimum != null && maximum != null && minimum.compareTo(maximum) > 0) {
                throw new IllegalArgumentException("a range is reversed: " + minimum + " to " + maximum);
            }
        }
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
