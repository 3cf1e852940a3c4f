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
        if (!turned.equals(forwards)) {
            throw new AssertionError("forwards " + forwards + ", but backwards " + backwards);
        }
        return forwards;
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
