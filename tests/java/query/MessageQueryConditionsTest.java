package com.corvane.kestrova.engine.tabulo;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** What the builder hands to the library. */
class MessageQueryConditionsTest {
    private static final TableConfiguration TABLE = TableConfiguration.builder("orders", "data/")
            .stringFields("ClOrdID", "Symbol", "Account").numericFields("OrderQty", "Price").build();

    private static MessageQueryConditionsBuilder builder() {
        return MessageQueryConditions.builder(TABLE);
    }

    /** Calls a getter, with a field id where it takes one. */
    private static Object ask(MessageQueryConditions conditions, Method getter) {
        try {
            return getter.getParameterCount() == 0 ? getter.invoke(conditions) : getter.invoke(conditions, 2);
        } catch (ReflectiveOperationException failed) {
            throw new AssertionError(failed);
        }
    }

    @Test
    void withoutConditionsEveryGetterReturnsNull() {
        List<Method> getters = Arrays.stream(MessageQueryConditions.class.getDeclaredMethods())
                .filter(method -> method.getName().startsWith("get") && Modifier.isPublic(method.getModifiers()))
                .toList();
        assertEquals(26, getters.size(), "one for each that the library asks");
        getters.forEach(getter -> assertNull(ask(builder().build(), getter), getter.getName()));
    }

    @ParameterizedTest
    @CsvSource({"ClOrdID,2", "Symbol,3", "Account,4"})
    void aStringFieldHasTheIdOfItsSlot(String name, int id) {
        MessageQueryConditions conditions = builder().string(name, StringFieldFilter.anyOf("x")).build();
        assertArrayEquals(new int[] {id}, conditions.getStringFieldsIds());
        assertArrayEquals(new String[] {"x"}, conditions.getStringFieldValues(id));
        assertNull(conditions.getStringFieldValues(id + 1));
    }

    @ParameterizedTest
    @CsvSource({"BUILT_IN_0,0", "BUILT_IN_1,1", "WIRE_MESSAGE,5", "NON_METADATA_FIELDS,6", "MSG_TYPE,7"})
    void aBuiltInStringHasTheIdOfItsSlot(MessageStringField field, int id) {
        assertArrayEquals(new int[] {id},
                builder().string(field, StringFieldFilter.anyOf("x")).build().getStringFieldsIds());
    }

    @ParameterizedTest
    @CsvSource({"OrderQty,0", "Price,1"})
    void aNumericFieldHasTheIdOfItsPlace(String name, int id) {
        MessageQueryConditions conditions = builder().numeric(name, NumericFieldFilter.anyOfLongs(5)).build();
        assertArrayEquals(new int[] {id}, conditions.getNumericFieldsIds());
        assertEquals(2, conditions.getNumericFieldValuesType(id));
        assertArrayEquals(new long[] {5}, conditions.getLongNumericFieldValues(id));
    }

    @ParameterizedTest
    @CsvSource({"UNIFORM_ID,2", "SEQ_NUM,3", "PREV_SEQ_NUM,4", "CONN_MSG_ID,5", "TIMESTAMP,6", "POSS_DUP,7",
        "OUT_OF_SEQUENCE,8"})
    void aNumberOfTheMetadataStandsBehindTheConfiguredOnes(MessageNumericField field, int id) {
        assertArrayEquals(new int[] {id},
                builder().numeric(field, NumericFieldFilter.anyOfDoubles(1)).build().getNumericFieldsIds());
    }

    @Test
    void aNameThatTheTableHasNotIsRefused() {
        StringFieldFilter string = StringFieldFilter.anyOf("a");
        NumericFieldFilter numeric = NumericFieldFilter.anyOfLongs(1);
        assertThrows(IllegalArgumentException.class, () -> builder().string("Price", string));
        assertThrows(IllegalArgumentException.class, () -> builder().numeric("Symbol", numeric));
    }

    @Test
    void aRangeFromANumberOnEndsAtTheLargestNumber() {
        MessageQueryConditions conditions = builder().seqNumFrom(5).build();
        assertEquals(5, conditions.getBeginSeqNum());
        assertEquals(Integer.MAX_VALUE, conditions.getEndSeqNum());
    }

    @Test
    void plainConditionsComeAsTheyWereGiven() {
        MessageQueryConditions conditions = builder().backward().seqNumRange(-3, 9).startingTime(11).endingTime(12)
                .possDup(false).excludeMsgTypes("0", "AE").build();
        assertEquals(true, conditions.getIterateBackward());
        assertEquals(-3, conditions.getBeginSeqNum());
        assertEquals(9, conditions.getEndSeqNum());
        assertEquals(11L, conditions.getStartingTime());
        assertEquals(12L, conditions.getEndingTime());
        assertEquals(false, conditions.getIsPossDupFlag());
        assertArrayEquals(new String[] {"0", "AE"}, conditions.getExcludeMsgTypes());
    }

    @Test
    void aSingleRangeOfIdsAndRangesPerClassReplaceEachOther() {
        MessageQueryConditionsBuilder builder = builder().messageIdRanges(new int[] {1}, new int[] {2, 3});
        MessageQueryConditions ranges = builder.build();
        MessageQueryConditions single = builder.messageIdRange(4, 5).build();
        assertArrayEquals(new int[] {1}, ranges.getStartMessageIds());
        assertArrayEquals(new int[] {2, 3}, ranges.getEndMessageIds());
        assertNull(ranges.getStartMessageId());
        assertNull(single.getStartMessageIds());
        assertNull(single.getEndMessageIds());
        assertEquals(4, single.getStartMessageId());
        assertEquals(5, single.getEndMessageId());
        assertNull(builder.messageIdRanges(new int[] {0}, new int[0]).build().getEndMessageId());
    }

    @Test
    void classesAreTakenFromTheirFirstIdToTheirLast() {
        MessageQueryConditions conditions = builder().messageClasses(MessageClass.APP_TO, MessageClass.RESENT).build();
        assertArrayEquals(new int[] {0, 0x5FFFFFFF}, conditions.getStartMessageIds());
        assertArrayEquals(new int[] {0x1FFFFFFE, 0x7FFFFFFF}, conditions.getEndMessageIds());
    }

    @Test
    void aStringFilterBringsItsValuesAndRanges() {
        StringFieldFilter filter = StringFieldFilter.between("a", null).orBetween(null, "z").orAbsent().ignoringCase();
        MessageQueryConditions conditions = builder().string("Symbol", filter).build();
        assertArrayEquals(new String[0], conditions.getStringFieldValues(3));
        assertArrayEquals(new String[] {"a", null}, conditions.getStringFieldMinValues(3));
        assertArrayEquals(new String[] {null, "z"}, conditions.getStringFieldMaxValues(3));
        assertEquals(true, conditions.getStringFieldIncludeNull(3));
        assertEquals(true, conditions.getStringFieldIgnoreCase(3));
        MessageQueryConditions plain = builder().string("Symbol", StringFieldFilter.anyOf("x")).build();
        assertEquals(false, plain.getStringFieldIncludeNull(3));
        assertEquals(false, plain.getStringFieldIgnoreCase(3));
    }

    @Test
    void anAcceptedValueCannotBeNull() {
        assertThrows(NullPointerException.class, () -> StringFieldFilter.anyOf("x", null));
    }

    @Test
    void aNumericFilterBringsItsValuesAndIntervals() {
        NumericFieldFilter doubles = NumericFieldFilter.betweenDoubles(1, 2).orBetween(3.5, 4).orBetween(5, 6);
        MessageQueryConditions conditions = builder().numeric("Price", doubles).numeric("OrderQty",
                NumericFieldFilter.anyOfLongs(7, 8).orBetween(9, 10).orAbsent()).build();
        assertEquals(1, conditions.getNumericFieldValuesType(1));
        assertArrayEquals(new double[] {1, 3.5, 5}, conditions.getDoubleNumericFieldMinValues(1));
        assertArrayEquals(new double[] {2, 4, 6}, conditions.getDoubleNumericFieldMaxValues(1));
        assertArrayEquals(new double[0], conditions.getDoubleNumericFieldValues(1));
        assertEquals(false, conditions.getNumericFieldIncludeNull(1));
        assertEquals(2, conditions.getNumericFieldValuesType(0));
        assertArrayEquals(new long[] {9}, conditions.getLongNumericFieldMinValues(0));
        assertArrayEquals(new long[] {10}, conditions.getLongNumericFieldMaxValues(0));
        assertArrayEquals(new long[] {7, 8}, conditions.getLongNumericFieldValues(0));
        assertEquals(true, conditions.getNumericFieldIncludeNull(0));
    }

    @Test
    void aFilterOnLongsTakesNoFractions() {
        NumericFieldFilter longs = NumericFieldFilter.anyOfLongs(1);
        assertThrows(IllegalStateException.class, () -> longs.orBetween(1.5, 2.5));
    }

    @Test
    void conditionsDoNotChangeWithTheirBuilderOrTheirArrays() {
        int[] starts = {1};
        String[] excluded = {"0"};
        MessageQueryConditionsBuilder builder =
                builder().messageIdRanges(starts, new int[] {2}).excludeMsgTypes(excluded);
        MessageQueryConditions conditions = builder.build();
        starts[0] = 9;
        excluded[0] = "9";
        conditions.getStartMessageIds()[0] = 8;
        conditions.getExcludeMsgTypes()[0] = "8";
        builder.backward().string("Symbol", StringFieldFilter.anyOf("x"));
        assertArrayEquals(new int[] {1}, conditions.getStartMessageIds());
        assertArrayEquals(new String[] {"0"}, conditions.getExcludeMsgTypes());
        assertNull(conditions.getIterateBackward());
        assertNull(conditions.getStringFieldsIds());
    }

    @Test
    void theEmptyPathIsTheWorkingDirectory() {
        assertEquals("./", TableConfiguration.builder("orders", Path.of("")).build().getDbRoot());
        assertEquals("data/", TableConfiguration.builder("orders", Path.of("data/")).build().getDbRoot());
        assertEquals("//", TableConfiguration.builder("orders", Path.of("/")).build().getDbRoot());
    }

    private static void assertRefused(String part, Executable call) {
        String message = assertThrows(IllegalArgumentException.class, call).getMessage();
        assertTrue(message.contains(part), message);
    }

    @Test
    void aFilterThatIsNullOrEmptyIsRefused() {
        assertRefused("null", () -> builder().string("Symbol", null));
        assertRefused("null", () -> builder().numeric("Price", null));
        assertRefused("null", () -> builder().string(MessageStringField.MSG_TYPE, null));
        assertRefused("null", () -> builder().numeric(MessageNumericField.SEQ_NUM, null));
        assertRefused("nothing", () -> builder().string("Symbol", StringFieldFilter.anyOf()));
        assertRefused("nothing", () -> builder().numeric("Price", NumericFieldFilter.anyOfDoubles()));
        assertRefused("nothing", () -> builder().numeric("Price", NumericFieldFilter.anyOfLongs()));
        builder().string("Symbol", StringFieldFilter.anyOf().orAbsent())
                .numeric("Price", NumericFieldFilter.anyOfLongs().orAbsent()).build();
    }

    @Test
    void anEmptySetIsRefusedWhereItWouldMeanAll() {
        assertRefused("no class", () -> builder().messageClasses());
        assertRefused("start id", () -> builder().messageIdRanges(new int[0], new int[0]));
        assertRefused("start id", () -> builder().messageIdRanges(new int[0], new int[] {5}));
        assertRefused("single id", () -> builder().messageIdRanges(new int[] {5}, new int[] {5}));
        assertNull(builder().excludeMsgTypes().build().getExcludeMsgTypes(), "nothing is left out");
        assertRefused("null", () -> builder().excludeMsgTypes("0", null));
    }

    @Test
    void aReversedRangeIsRefusedEverywhere() {
        assertRefused("reversed", () -> builder().seqNumRange(3, 2));
        assertRefused("reversed", () -> builder().messageIdRange(3, 2));
        assertRefused("reversed", () -> builder().messageIdRanges(new int[] {3}, new int[] {2}));
        assertRefused("reversed", () -> builder().startingTime(3).endingTime(2).build());
        assertRefused("reversed", () -> builder().string("Symbol", StringFieldFilter.between("b", "a")));
        assertRefused("reversed", () -> builder().numeric("Price", NumericFieldFilter.betweenDoubles(2, 1)));
        assertRefused("reversed", () -> builder().numeric("Price", NumericFieldFilter.betweenLongs(2, 1)));
        builder().seqNumRange(3, 3).startingTime(4).endingTime(4).messageIdRange(7, 7).build();
    }

    @Test
    void aRangeOfIdsOverMoreThanOneClassIsRefusedWithTheRangesOfTheClasses() {
        assertRefused("APP_TO 0 to 536870910", () -> builder().messageIdRange(5, 536870911));
        assertRefused("RESENT 1610612735 to 2147483647", () -> builder().messageIdRange(-1, 5));
        assertRefused("of no class", () -> builder().messageIdRanges(new int[] {-1}, new int[] {5}));
    }

    @Test
    void conditionsAndFiltersSayWhatTheySelect() {
        assertEquals("all messages", builder().build().toString());
        String text = builder().backward().seqNumRange(1, 2).possDup(true).excludeMsgTypes("0")
                .string("Symbol", StringFieldFilter.anyOf("IBM").orBetween("a", null).orAbsent().ignoringCase())
                .numeric("Price", NumericFieldFilter.anyOfDoubles(1.5).orBetween(2, 3)).build().toString();
        for (String part : List.of("backward", "seqNums 1 to 2", "possDup true", "[0]", "IBM", "between a and null",
                "absent", "ignoring case", "1.5", "between 2.0 and 3.0")) {
            assertTrue(text.contains(part), text);
        }
        assertEquals("in [4] or between 5 and 6 or absent",
                NumericFieldFilter.anyOfLongs(4).orBetween(5, 6).orAbsent().toString());
    }
}
