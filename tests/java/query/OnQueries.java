package com.corvane.kestrova.engine.tabulo.jni;

import java.util.ArrayList;
import java.util.List;
import java.util.function.Predicate;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterEach;

/** Tests of queries on tables; iterators that a test leaves open are closed before their tables are freed. */
abstract class OnQueries extends OnTables {
    static final int MESSAGES_PER_BLOCK = 1000;

    private final List<Long> iterators = new ArrayList<>();

    @AfterEach
    void closeIterators() {
        iterators.forEach(QueryNatives::close);
        iterators.clear();
    }

    long query(long table, Object conditions) {
        long iterator = QueryNatives.open(table, conditions);
        iterators.add(iterator);
        return iterator;
    }

    /** Closes an iterator early. */
    void closeIterator(long iterator) {
        iterators.remove(iterator);
        QueryNatives.close(iterator);
    }

    /** The uniform ids of what is left of an iterator. */
    static List<Integer> rest(long iterator) {
        List<Integer> ids = new ArrayList<>();
        while (QueryNatives.next(iterator)) {
            ids.add(QueryNatives.uniformId(iterator));
        }
        return ids;
    }

    /** The uniform ids that a query selects, forwards; a look backwards must find the same. */
    List<Integer> select(long table, RawConditions conditions) {
        List<Integer> forwards = rest(query(table, conditions));
        conditions.backward = true;
        List<Integer> backwards = rest(query(table, conditions));
        conditions.backward = null;
        List<Integer> turned = IntStream.range(0, backwards.size())
                .mapToObj(i -> backwards.get(backwards.size() - 1 - i)).toList();
        assertIds(forwards, turned, "backwards gives other messages than forwards");
        return forwards;
    }

    /** Says where two lists part instead of printing them whole: a list may hold thousands of ids. */
    static void assertIds(List<Integer> expected, List<Integer> actual, String what) {
        if (expected.equals(actual)) {
            return;
        }
        int place = 0;
        while (place < expected.size() && place < actual.size() && expected.get(place).equals(actual.get(place))) {
            ++place;
        }
        throw new AssertionError(what + ": " + actual.size() + " ids instead of " + expected.size() + ", at place "
                + place + " come " + after(actual, place) + " instead of " + after(expected, place));
    }

    static void assertIds(List<Integer> expected, List<Integer> actual) {
        assertIds(expected, actual, "other messages are selected");
    }

    private static List<Integer> after(List<Integer> ids, int place) {
        return ids.subList(place, Math.min(ids.size(), place + 3));
    }

    static List<Integer> ids(int... ids) {
        return IntStream.of(ids).boxed().toList();
    }

    static List<Integer> idsFrom(int first, int last) {
        return IntStream.rangeClosed(first, last).boxed().toList();
    }

    static List<Integer> idsWhere(int first, int last, Predicate<Integer> condition) {
        return idsFrom(first, last).stream().filter(condition).toList();
    }
}
