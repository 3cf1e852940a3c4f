package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NOT_IMPLEMENTED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;
import org.junit.jupiter.params.provider.ValueSource;

/** How the library reads a conditions object: which getters it calls, in which order, and what stops it. */
class QueryConditionsReadingTest extends OnQueries {
    private static final List<String> WITHOUT_FILTERS = List.of("getIterateBackward", "getBeginSeqNum", "getEndSeqNum",
            "getStringFieldsIds", "getStartMessageIds", "getEndMessageIds", "getStartMessageId", "getEndMessageId",
            "getExcludeMsgTypes", "getStartingTime", "getEndingTime", "getIsPossDupFlag", "getNumericFieldsIds");

    private static final List<String> WITH_FILTERS = List.of("getIterateBackward", "getBeginSeqNum", "getEndSeqNum",
            "getStringFieldsIds", "getStringFieldValues 3", "getStringFieldMinValues 3", "getStringFieldMaxValues 3",
            "getStringFieldIncludeNull 3", "getStringFieldIgnoreCase 3", "getStringFieldValues 2",
            "getStringFieldMinValues 2", "getStringFieldMaxValues 2", "getStringFieldIncludeNull 2",
            "getStringFieldIgnoreCase 2", "getStartMessageIds", "getEndMessageIds", "getStartMessageId",
            "getEndMessageId", "getExcludeMsgTypes", "getStartingTime", "getEndingTime", "getIsPossDupFlag",
            "getNumericFieldsIds", "getNumericFieldValuesType 1", "getNumericFieldIncludeNull 1",
            "getDoubleNumericFieldMinValues 1", "getDoubleNumericFieldMaxValues 1", "getDoubleNumericFieldValues 1",
            "getNumericFieldValuesType 0", "getNumericFieldIncludeNull 0", "getLongNumericFieldMinValues 0",
            "getLongNumericFieldMaxValues 0", "getLongNumericFieldValues 0");

    private static RawConditions allGiven() {
        RawConditions all = RawConditions.string(3, filter -> {
            filter.values = new String[] {"a", "b"};
            filter.minimums = new String[] {"c"};
            filter.maximums = new String[] {"d"};
            filter.includeNull = true;
            filter.ignoreCase = true;
        });
        all.andString(2, filter -> filter.values = new String[] {"x"});
        all.andNumeric(1, 1, filter -> filter.doubleValues = new double[] {1});
        all.andNumeric(0, 2, filter -> filter.longValues = new long[] {1});
        all.backward = false;
        all.beginSeqNum = 1;
        all.endSeqNum = 2;
        all.startIds = new int[] {1};
        all.endIds = new int[] {2};
        all.startId = 1;
        all.endId = 2;
        all.excluded = new String[] {"0"};
        all.startingTime = 1L;
        all.endingTime = 2L;
        all.possDup = true;
        return all;
    }

    static List<String> everyGetter() {
        return WITH_FILTERS;
    }

    private long tableOfThree() {
        long table = openForWriting();
        writeNumbered(table, 1, 3);
        return table;
    }

    @Test
    void gettersThatAllReturnNullSelectTheWholeTable() {
        long table = openForWriting();
        writeNumbered(table, 1, 2 * MESSAGES_PER_BLOCK + 7);
        RawConditions nothing = new RawConditions();
        assertIds(idsFrom(1, 2 * MESSAGES_PER_BLOCK + 7), rest(query(table, nothing)));
        assertEquals(WITHOUT_FILTERS, nothing.calls, "every getter is called once, in this order");
    }

    @Test
    void theGettersOfAFilterAreCalledWithItsFieldInTheirOrder() {
        RawConditions all = allGiven();
        query(tableOfThree(), all);
        assertEquals(WITH_FILTERS, all.calls);
    }

    @Test
    void emptyArraysAreNoFiltersAndNoConditions() {
        RawConditions empty = RawConditions.of(c -> {
            c.stringIds = new int[0];
            c.numericIds = new int[0];
            c.startIds = new int[0];
            c.endIds = new int[0];
            c.excluded = new String[0];
        });
        assertIds(ids(1, 2, 3), rest(query(tableOfThree(), empty)));
        assertEquals(WITHOUT_FILTERS, empty.calls);
    }

    @ParameterizedTest
    @MethodSource("everyGetter")
    void aGetterThatThrowsEndsTheCallAndNoOtherOneIsCalled(String getter) {
        long table = tableOfThree();
        RawConditions conditions = allGiven();
        conditions.throwing = getter;
        assertFails(JNI_ERROR, () -> query(table, conditions));
        assertEquals(WITH_FILTERS.subList(0, WITH_FILTERS.indexOf(getter) + 1), conditions.calls);
        assertIds(ids(1, 2, 3), rest(query(table, new RawConditions())), "the table goes on");
    }

    @ParameterizedTest
    @ValueSource(strings = {"getIterateBackward", "getEndSeqNum", "getStringFieldsIds", "getStartMessageIds",
        "getExcludeMsgTypes", "getEndingTime", "getNumericFieldsIds"})
    void aGetterThatThrowsOnItsOwnIsAnErrorToo(String getter) {
        long table = tableOfThree();
        RawConditions conditions = RawConditions.of(c -> c.throwing = getter);
        assertFails(JNI_ERROR, () -> query(table, conditions));
        assertEquals(getter, conditions.calls.get(conditions.calls.size() - 1));
    }

    @Test
    void noConditionsObjectIsANullPointer() {
        long table = tableOfThree();
        assertFails(NULL_POINTER_ERROR, () -> query(table, null));
    }

    @Test
    void anObjectWithoutTheGettersIsRefused() {
        long table = tableOfThree();
        assertFails(JNI_ERROR, () -> query(table, new Object()));
        assertFails(JNI_ERROR, () -> query(table, "conditions"));
    }

    /** Has getters of the right names, but one of them returns a primitive. */
    public static final class PrimitiveResult {
        public Boolean getIterateBackward() {
            return null;
        }

        public int getBeginSeqNum() {
            return 1;
        }
    }

    @Test
    void aGetterWithAnotherSignatureIsNoGetter() {
        long table = tableOfThree();
        assertFails(JNI_ERROR, () -> query(table, new PrimitiveResult()));
    }

    @Test
    void aClosedTableIsRefusedBeforeAnythingIsAsked() {
        Natives.load();
        RawConditions conditions = allGiven();
        assertFails(TABLE_CLOSED_ERROR, () -> query(0, conditions));
        assertEquals(List.of(), conditions.calls);
    }

    @ParameterizedTest
    @ValueSource(ints = {0, 3, -1, Integer.MAX_VALUE})
    void aNumericFilterOfAnotherTypeIsNotImplemented(int type) {
        long table = tableOfThree();
        RawConditions conditions = new RawConditions().andNumeric(0, type, filter -> { });
        assertFails(NOT_IMPLEMENTED_ERROR, () -> query(table, conditions));
        assertEquals("getNumericFieldIncludeNull 0", conditions.calls.get(conditions.calls.size() - 1),
                "no array is asked for");
    }

    @Test
    void aNumericFilterWithoutATypeIsNotImplemented() {
        long table = tableOfThree();
        RawConditions conditions = new RawConditions().andNumeric(0, null, filter -> { });
        assertFails(NOT_IMPLEMENTED_ERROR, () -> query(table, conditions));
    }

    @Test
    void aNullAmongTheAcceptedValuesIsANullPointer() {
        long table = tableOfThree();
        assertFails(NULL_POINTER_ERROR, () -> query(table,
                RawConditions.string(1, filter -> filter.values = new String[] {"a", null})));
        assertFails(NULL_POINTER_ERROR, () -> query(table,
                RawConditions.string(1, filter -> filter.values = new String[] {null, "a"})));
    }

    @Test
    void aNullAmongTheExcludedMsgTypesIsANullPointer() {
        long table = tableOfThree();
        assertFails(NULL_POINTER_ERROR,
                () -> query(table, RawConditions.of(c -> c.excluded = new String[] {"D", null})));
        assertFails(NULL_POINTER_ERROR,
                () -> query(table, RawConditions.of(c -> c.excluded = new String[] {null, "D"})));
    }

    @Test
    void stringRangesOfDifferentLengthsAreAWrongParameter() {
        long table = tableOfThree();
        assertFails(WRONG_PARAMETER_ERROR, () -> query(table, RawConditions.string(1, filter -> {
            filter.minimums = new String[] {"a", "b"};
            filter.maximums = new String[] {"c"};
        })));
        assertFails(WRONG_PARAMETER_ERROR, () -> query(table, RawConditions.string(1, filter -> {
            filter.minimums = new String[0];
            filter.maximums = new String[] {null};
        })));
    }

    @Test
    void numericRangesOfDifferentLengthsAreAWrongParameter() {
        long table = tableOfThree();
        assertFails(WRONG_PARAMETER_ERROR, () -> query(table, RawConditions.doubles(0, filter -> {
            filter.doubleMinimums = new double[2];
            filter.doubleMaximums = new double[1];
        })));
        assertFails(WRONG_PARAMETER_ERROR, () -> query(table, RawConditions.longs(0, filter -> {
            filter.longMinimums = new long[0];
            filter.longMaximums = new long[1];
        })));
    }

    @Test
    void theConditionsAreReadOnceAndNotKept() {
        long table = tableOfThree();
        RawConditions conditions = RawConditions.of(c -> {
            c.startIds = new int[] {1};
            c.endIds = new int[] {2};
        });
        long iterator = query(table, conditions);
        int calls = conditions.calls.size();
        conditions.startIds[0] = 3;
        conditions.endIds[0] = 3;
        assertIds(ids(1, 2), rest(iterator));
        assertEquals(calls, conditions.calls.size(), "nothing is asked after the query is open");
    }

    @Test
    void aGetterMayUseTheTableThatIsAsked() {
        long table = tableOfThree();
        RawConditions conditions = new RawConditions() {
            @Override
            public Integer getBeginSeqNum() {
                writeNumbered(table, 4, 4);
                return super.getBeginSeqNum();
            }
        };
        assertIds(ids(1, 2, 3, 4), rest(query(table, conditions)));
    }
}
