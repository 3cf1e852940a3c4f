package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** Conditions on the metadata, over two closed blocks and an open one. */
class QueryMetadataTest extends OnQueries {
    private static final int LAST = 2 * MESSAGES_PER_BLOCK + 100;
    private static final int APP_TO = MessageClass.APP_TO.firstId();
    private static final int APP_FROM = MessageClass.APP_FROM.firstId();
    private static final int ADMIN_TO = MessageClass.ADMIN_TO.firstId();

    /** Messages whose numbers all are their uniform id; the classes of their ids take turns. */
    private long table() {
        long table = openForWriting();
        for (int i = 1; i <= LAST; ++i) {
            int number = i;
            write(table, m -> {
                m.uniformId = number;
                m.seqNum = number;
                m.timestamp = number;
                m.connMsgId = (number % 3 == 0 ? APP_TO : number % 3 == 1 ? APP_FROM : ADMIN_TO) + number;
                m.msgType = number % 5 == 0 ? "0" : number % 5 == 1 ? "AE" : number % 5 == 2 ? "ABCDE" : "D";
                m.possDup = number % 7 == 0;
            });
        }
        return table;
    }

    private static RawConditions seqNums(Integer begin, Integer end) {
        return RawConditions.of(c -> {
            c.beginSeqNum = begin;
            c.endSeqNum = end;
        });
    }

    private static RawConditions classIds(int[] starts, int[] ends) {
        return RawConditions.of(c -> {
            c.startIds = starts;
            c.endIds = ends;
        });
    }

    private static RawConditions idRange(Integer start, Integer end) {
        return RawConditions.of(c -> {
            c.startId = start;
            c.endId = end;
        });
    }

    private static RawConditions times(Long start, Long end) {
        return RawConditions.of(c -> {
            c.startingTime = start;
            c.endingTime = end;
        });
    }

    @Test
    void aRangeOfSequenceNumbersIncludesBothEnds() {
        long table = table();
        assertIds(idsFrom(995, 1005), select(table, seqNums(995, 1005)));
        assertIds(ids(1000), select(table, seqNums(1000, 1000)));
        assertIds(ids(1001), select(table, seqNums(1001, 1001)));
        assertIds(idsFrom(2050, LAST), select(table, seqNums(2050, Integer.MAX_VALUE)));
        assertIds(List.of(), select(table, seqNums(LAST + 1, LAST + 9)));
        assertIds(idsFrom(1, 3), select(table, seqNums(Integer.MIN_VALUE, 3)));
    }

    @Test
    void aRangeOfSequenceNumbersThatEndsBelowItsBeginningIsNoCondition() {
        long table = table();
        assertEquals(LAST, select(table, seqNums(5, 0)).size());
        assertEquals(LAST, select(table, seqNums(5, 4)).size());
    }

    @Test
    void oneEndOfARangeAloneIsNoCondition() {
        long table = table();
        assertEquals(LAST, select(table, seqNums(5, null)).size());
        assertEquals(LAST, select(table, seqNums(null, 5)).size());
        assertEquals(LAST, select(table, idRange(APP_TO + 5, null)).size());
        assertEquals(LAST, select(table, idRange(null, APP_TO + 5)).size());
    }

    @Test
    void zeroAndNegativeSequenceNumbersAreNumbersLikeOthers() {
        long table = openForWriting();
        int[] numbers = {-2, -1, 0, 1, 2};
        for (int i = 0; i < numbers.length; ++i) {
            int at = i;
            write(table, m -> {
                m.uniformId = at + 1;
                m.seqNum = numbers[at];
            });
        }
        assertIds(ids(3), select(table, seqNums(0, 0)));
        assertIds(ids(1, 2, 3), select(table, seqNums(-5, 0)));
        assertIds(ids(2), select(table, seqNums(-1, -1)));
        assertIds(ids(3, 4), select(table, seqNums(0, 1)));
    }

    @Test
    void aSingleRangeOfIdsStaysInItsClass() {
        long table = table();
        assertIds(idsWhere(900, 1100, i -> i % 3 == 0), select(table, idRange(APP_TO + 900, APP_TO + 1100)));
        assertIds(ids(1003), select(table, idRange(APP_FROM + 1003, APP_FROM + 1003)));
        assertIds(List.of(), select(table, idRange(APP_FROM + 1002, APP_FROM + 1002)));
        assertIds(List.of(), select(table, idRange(APP_FROM + 10, APP_FROM + 5)));
    }

    @Test
    void idZeroIsAnIdLikeOthers() {
        long table = openForWriting();
        write(table, m -> m.uniformId = 1);
        write(table, m -> {
            m.uniformId = 2;
            m.connMsgId = 1;
        });
        assertIds(ids(1), select(table, idRange(0, 0)));
        assertIds(ids(1, 2), select(table, idRange(0, 1)));
    }

    @Test
    void aSingleRangeOverTwoClassesSelectsNothingFromClosedBlocksAndSaysSo() {
        long table = table();
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertIds(idsWhere(2001, LAST, i -> i % 3 != 2), rest(query(table, idRange(APP_TO, APP_FROM + LAST))));
        String note = "Tabulo/C NOTE: mfr_compareRange(): error: lowerConnMsgId=0 and upperConnMsgId="
                + (APP_FROM + LAST) + " belong to different classes (";
        assertTrue(facility.notes().contains(note), facility::notes);
    }

    @Test
    void aSingleRangeFromANegativeIdSelectsNothingFromClosedBlocks() {
        long table = table();
        assertIds(idsWhere(2001, LAST, i -> i % 3 == 0), select(table, idRange(-5, APP_TO + LAST)));
        assertEquals(LAST, select(table, idRange(-1, APP_TO + 5)).size(), "the start -1 stands for none");
    }

    @Test
    void rangesPerClassSelectFromEveryClassThatHasOne() {
        long table = table();
        RawConditions two =
                classIds(new int[] {APP_TO + 990, APP_FROM + 1000}, new int[] {APP_FROM + 1006, APP_TO + 996});
        assertIds(ids(990, 993, 996, 1000, 1003, 1006), select(table, two));
        assertIds(idsWhere(2000, LAST, i -> i % 3 == 0), select(table, classIds(new int[] {APP_TO + 2000}, null)));
        assertIds(idsWhere(1, LAST, i -> i % 3 == 0),
                select(table, classIds(new int[] {APP_TO}, new int[0])), "up to the class's last id");
    }

    @Test
    void anEndIdAloneSelectsFromTheFirstIdOfItsClassWhenAnotherClassHasAStart() {
        long table = table();
        RawConditions conditions = classIds(new int[] {APP_TO + 2095}, new int[] {APP_FROM + 7});
        assertIds(ids(1, 4, 7, 2097, 2100), select(table, conditions));
    }

    @Test
    void withoutAnyStartIdTheRangesPerClassAreNoCondition() {
        long table = table();
        assertEquals(LAST, select(table, classIds(null, new int[] {APP_FROM + 7})).size());
        assertEquals(LAST, select(table, classIds(new int[] {APP_TO + 6}, new int[] {APP_TO + 6})).size(),
                "a range whose start is its end is dropped");
        assertEquals(LAST, select(table, classIds(new int[] {-1, -5}, new int[] {-3})).size(), "ids without a class");
    }

    @Test
    void theLaterOfTwoIdsOfAClassHolds() {
        long table = table();
        RawConditions conditions =
                classIds(new int[] {APP_TO + 3, APP_TO + 9}, new int[] {APP_TO + 99, APP_TO + 15});
        assertIds(ids(9, 12, 15), select(table, conditions));
    }

    @Test
    void aSingleRangeTakesTheRangesPerClassAway() {
        long table = table();
        RawConditions both = classIds(new int[] {APP_FROM}, new int[] {APP_FROM + LAST});
        both.startId = ADMIN_TO + 1;
        both.endId = ADMIN_TO + 8;
        assertIds(ids(2, 5, 8), select(table, both));
    }

    @Test
    void timesIncludeTheirEnds() {
        long table = table();
        assertIds(idsFrom(1999, 2002), select(table, times(1999L, 2002L)));
        assertIds(idsFrom(2002, LAST), select(table, times(2002L, null)));
        assertIds(idsFrom(1, 4), select(table, times(null, 4L)));
        assertIds(List.of(), select(table, times(9L, 8L)));
        assertIds(List.of(), select(table, times(Long.MAX_VALUE, null)));
        assertEquals(LAST, select(table, times(Long.MIN_VALUE, Long.MAX_VALUE)).size());
    }

    @Test
    void timeZeroIsNoCondition() {
        long table = table();
        assertEquals(LAST, select(table, times(0L, 0L)).size());
        assertIds(idsFrom(1, 10), select(table, times(0L, 10L)));
        assertIds(idsFrom(2095, LAST), select(table, times(2095L, 0L)));
    }

    @ParameterizedTest
    @CsvSource({"true", "false"})
    void thePossDupFlagSelectsItsSide(boolean flag) {
        long table = table();
        List<Integer> expected = idsWhere(1, LAST, i -> i % 7 == 0 == flag);
        assertIds(expected, select(table, RawConditions.of(c -> c.possDup = flag)));
    }

    @Test
    void excludedMsgTypesAreLeftOut() {
        long table = table();
        assertIds(idsWhere(1, LAST, i -> i % 5 != 0),
                select(table, RawConditions.of(c -> c.excluded = new String[] {"0"})));
        assertIds(idsWhere(1, LAST, i -> i % 5 == 1 || i % 5 == 2),
                select(table, RawConditions.of(c -> c.excluded = new String[] {"D", "0"})));
        assertEquals(LAST, select(table, RawConditions.of(c -> c.excluded = new String[] {"A", "d", "", "AB"})).size(),
                "only whole MsgTypes count");
    }

    @Test
    void anExcludedMsgTypeCountsWithItsFirstFiveCharacters() {
        long table = table();
        assertIds(idsWhere(1, LAST, i -> i % 5 != 2),
                select(table, RawConditions.of(c -> c.excluded = new String[] {"ABCDEFG"})));
    }

    @Test
    void aMessageMustMeetAllConditions() {
        long table = table();
        RawConditions conditions = seqNums(990, 1100);
        conditions.startIds = new int[] {APP_TO};
        conditions.possDup = false;
        conditions.excluded = new String[] {"D"};
        conditions.startingTime = 1000L;
        conditions.endingTime = 1050L;
        assertIds(idsWhere(1000, 1050, i -> i % 3 == 0 && i % 7 != 0 && i % 5 <= 2), select(table, conditions));
    }

    @Test
    void anEmptyTableHasNothingToSelect() {
        long table = openForWriting();
        assertIds(List.of(), select(table, new RawConditions()));
    }

    @Test
    void aReaderSelectsTheSame() {
        table();
        long reader = openForReading();
        assertIds(idsFrom(995, 1005), select(reader, seqNums(995, 1005)));
        assertEquals(LAST, select(reader, new RawConditions()).size());
    }
}
