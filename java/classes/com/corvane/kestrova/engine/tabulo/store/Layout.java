package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.concurrent.TimeUnit;

/**
 * What a message table indexes: the names of its texts and numbers, in which queries find messages, and the unit in
 * which it counts time. Names are written in the table's file when it is made and never change; the unit is written
 * nowhere, so that all who use a table must mean the same one.
 *
 * @param texts names of the indexed text fields, 12 at most
 * @param numbers names of the indexed numeric fields, 16 at most
 * @param timeUnit the unit of the table's time stamps, counted from 1970-01-01T00:00:00Z on: seconds, milliseconds,
 *        microseconds or nanoseconds
 */
public record Layout(List<String> texts, List<String> numbers, TimeUnit timeUnit) {
    static final int MOST_TEXTS = 12;
    static final int MOST_NUMBERS = 16;

    /**
     * Makes a layout of names that may be those of a file, where one may be empty or stand twice; the first of equal
     * names is the one that is found. {@link #builder()} takes no such names.
     *
     * @param texts names of the indexed text fields
     * @param numbers names of the indexed numeric fields
     * @param timeUnit the unit of time stamps
     * @throws IllegalArgumentException for more than 12 texts or 16 numbers, or for another unit
     */
    public Layout {
        texts = List.copyOf(texts);
        numbers = List.copyOf(numbers);
        refuseMore(texts, MOST_TEXTS, "text");
        refuseMore(numbers, MOST_NUMBERS, "numeric");
        Times.check(timeUnit);
    }

    /**
     * Begins a layout without fields, in milliseconds.
     *
     * @return a builder
     */
    public static Builder builder() {
        return new Builder();
    }

    /**
     * Reads a table's layout from its file, without the library and without disturbing a writer. The unit of time is
     * told from the table's first message: the one in which its time lies between 1990 and 2100; milliseconds when
     * there is no message, or none such.
     *
     * @param table the table's file
     * @return the layout
     * @throws TabuloDamagedException {@code SIGNATURE_ERROR}, {@code FILE_SIZE_ERROR}, {@code HEADER_CORRUPTED_ERROR},
     *         {@code STREAM_NOT_ENOUGH_DATA_ERROR} when the file is no table, is cut in its header, or its header
     *         contradicts itself
     * @throws TabuloException {@code FILE_OPEN_ERROR} when there is no such file or it may not be read;
     *         {@code FILE_READ_ERROR}; {@code BYTE_ORDER_ERROR}, {@code VERSION_ERROR}; {@code TABLE_TYPE_ERROR} for a
     *         session info table; {@code CONFIG_MISMATCH_ERROR} for a table with other built-in fields, or with blocks
     *         of other than 1000 messages, which Java cannot open
     */
    public static Layout read(Path table) {
        return TableHeader.read(Objects.requireNonNull(table, "table"));
    }

    /**
     * The same fields with another unit.
     *
     * @param unit the unit of time stamps
     * @return the layout
     * @throws IllegalArgumentException for another unit than seconds, milliseconds, microseconds and nanoseconds
     */
    public Layout in(TimeUnit unit) {
        return new Layout(texts, numbers, unit);
    }

    /** The configuration by which the library knows the table in a file. */
    TableConfiguration configuration(Path file) {
        Path directory = file.getParent();
        return TableConfiguration.builder(file.getFileName().toString(), directory == null ? Path.of("") : directory)
                .stringFields(texts.toArray(String[]::new)).numericFields(numbers.toArray(String[]::new)).build();
    }

    /** The place of each name, of the first where two are equal. */
    static Map<String, Integer> places(List<String> names) {
        Map<String, Integer> places = new HashMap<>();
        for (int i = 0; i < names.size(); ++i) {
            places.putIfAbsent(names.get(i), i);
        }
        return places;
    }

    private static void refuseMore(List<String> names, int most, String kind) {
        if (names.size() > most) {
            throw new IllegalArgumentException("a table has at most " + most + " " + kind + " fields, not "
                    + names.size());
        }
    }

    /** Collects a layout step by step; used by one thread. */
    public static final class Builder {
        private final List<String> texts = new ArrayList<>();
        private final List<String> numbers = new ArrayList<>();
        private TimeUnit timeUnit = TimeUnit.MILLISECONDS;

        private Builder() {
        }

        /**
         * Adds indexed text fields.
         *
         * @param names their names, 12 at most in all
         * @return this builder
         * @throws IllegalArgumentException when a name is empty, holds a zero character, or was given before
         */
        public Builder texts(String... names) {
            add(texts, names);
            return this;
        }

        /**
         * Adds indexed numeric fields.
         *
         * @param names their names, 16 at most in all
         * @return this builder
         * @throws IllegalArgumentException when a name is empty, holds a zero character, or was given before
         */
        public Builder numbers(String... names) {
            add(numbers, names);
            return this;
        }

        /**
         * Sets the unit of the table's time stamps, which are milliseconds otherwise.
         *
         * @param unit seconds, milliseconds, microseconds or nanoseconds
         * @return this builder
         * @throws IllegalArgumentException for another unit
         */
        public Builder timeUnit(TimeUnit unit) {
            timeUnit = Times.check(unit);
            return this;
        }

        /**
         * Ends the layout.
         *
         * @return the layout
         * @throws IllegalArgumentException for more than 12 texts or 16 numbers
         */
        public Layout build() {
            return new Layout(texts, numbers, timeUnit);
        }

        private static void add(List<String> fields, String... names) {
            for (String name : names) {
                if (name.isEmpty() || name.indexOf('\0') >= 0) {
                    throw new IllegalArgumentException("a field cannot have the name \"" + name + "\"");
                }
                if (fields.contains(name)) {
                    throw new IllegalArgumentException("there are two fields of the name " + name + " in "
                            + Arrays.toString(names));
                }
                fields.add(name);
            }
        }
    }
}
