package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import java.util.List;
import java.util.Random;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/** Reading by a great many ids at once. */
class QueryByIdsTest extends OnTables {
    private static final int MESSAGES = 100_000;

    @Test
    void asManyIdsAsMessagesInAnyOrderGiveAllMessagesInTheirOrder() {
        long table = openForWriting();
        writeNumbered(table, 1, MESSAGES);
        int[] ids = range(1, MESSAGES);
        Random random = new Random(4711);
        for (int i = ids.length - 1; i > 0; --i) {
            int j = random.nextInt(i + 1);
            int swapped = ids[i];
            ids[i] = ids[j];
            ids[j] = swapped;
        }
        List<Long> expected = IntStream.rangeClosed(1, MESSAGES).mapToObj(i -> 1_000L + i).toList();
        assertEquals(expected, read(table, ids).timestamps());
    }

    @Test
    void idsTwiceIdsWithoutAClassAndIdsOfNoMessageAddNothing() {
        long table = openForWriting();
        writeNumbered(table, 1, 2500);
        int[] ids = {2400, -1, 7, Integer.MIN_VALUE, 7, 1000, 1001, 9999, MessageClass.RESENT.firstId(), 2400, 0,
            Integer.MAX_VALUE};
        assertEquals(List.of(1_007L, 2_000L, 2_001L, 3_400L), read(table, ids).timestamps());
    }
}
