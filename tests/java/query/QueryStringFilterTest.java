package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.List;
import java.util.function.BiConsumer;
import java.util.function.Consumer;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** String filters, on a closed block and an open one that hold the same texts in turn. */
class QueryStringFilterTest extends OnQueries {
    /** Slots of a table with two configured string fields. */
    private static final int BUILT_IN_0 = 0;
    private static final int BUILT_IN_1 = 1;
    private static final int FIRST = 2;
    private static final int SECOND = 3;
    private static final int WIRE = 4;
    private static final int NON_METADATA = 5;
    private static final int MSG_TYPE = 6;

    private static final String[] TEXTS = {"A", "B", "C", "D", "b", "", null, "BB"};
    private static final int LAST = MESSAGES_PER_BLOCK + 24;

    private static String text(int id) {
        return TEXTS[id % TEXTS.length];
    }

    /** The texts in turn in the first configured field. */
    private long table() {
        return table((m, text) -> m.strings = new String[] {text, null});
    }

    private long table(BiConsumer<Message, String> place) {
        long table = open(provider().strings("first", "second"), Natives.WRITE);
        for (int i = 1; i <= LAST; ++i) {
            int number = i;
            write(table, m -> {
                m.uniformId = number;
                m.strings = new String[2];
                place.accept(m, text(number));
            });
        }
        return table;
    }

    private List<Integer> selectFirst(long table, Consumer<RawConditions.StringFilter> filter) {
        return select(table, RawConditions.string(FIRST, filter));
    }

    private static List<Integer> withTexts(String... wanted) {
        List<String> list = Arrays.asList(wanted);
        return idsWhere(1, LAST, i -> list.contains(text(i)));
    }

    @Test
    void aValueSelectsExactlyItself() {
        long table = table();
        assertIds(withTexts("B"), selectFirst(table, f -> f.values = new String[] {"B"}));
        assertIds(withTexts("A", "BB"), selectFirst(table, f -> f.values = new String[] {"BB", "A", "BB"}));
        assertIds(List.of(), selectFirst(table, f -> f.values = new String[] {"nowhere"}));
    }

    @Test
    void aFilterWithNothingInItSelectsNothing() {
        long table = table();
        assertIds(List.of(), selectFirst(table, f -> { }));
        assertIds(List.of(), selectFirst(table, f -> {
            f.values = new String[0];
            f.minimums = new String[0];
            f.maximums = new String[0];
            f.includeNull = false;
            f.ignoreCase = false;
        }));
    }

    @Test
    void anEmptyTextThatIsStoredIsAValue() {
        long table = table();
        assertIds(withTexts(""), selectFirst(table, f -> f.values = new String[] {""}));
    }

    @Test
    void includingTheAbsentSelectsAbsentAndEmptyTexts() {
        long table = table();
        assertIds(withTexts("", null), selectFirst(table, f -> f.includeNull = true));
        assertIds(withTexts("", null, "C"), selectFirst(table, f -> {
            f.values = new String[] {"C"};
            f.includeNull = true;
        }));
    }

    @Test
    void bothBoundsOfARangeAreOutside() {
        long table = table();
        assertIds(withTexts("C", "BB"), selectFirst(table, f -> {
            f.minimums = new String[] {"B"};
            f.maximums = new String[] {"D"};
        }));
        assertIds(List.of(), selectFirst(table, f -> {
            f.minimums = new String[] {"B"};
            f.maximums = new String[] {"B"};
        }));
    }

    @Test
    void aNullElementIsAnOpenBound() {
        long table = table();
        assertIds(withTexts("C", "D", "b", "BB"), selectFirst(table, f -> {
            f.minimums = new String[] {"B"};
            f.maximums = new String[] {null};
        }));
        assertIds(withTexts("", "A"), selectFirst(table, f -> {
            f.minimums = new String[] {null};
            f.maximums = new String[] {"B"};
        }));
        assertIds(withTexts("A", "B", "C", "D", "b", "", "BB"), selectFirst(table, f -> {
            f.minimums = new String[] {null};
            f.maximums = new String[] {null};
        }), "everything that is there");
    }

    @Test
    void aNullArrayIsAnOpenSideOfEveryRange() {
        long table = table();
        assertIds(withTexts("", "A"), selectFirst(table, f -> f.maximums = new String[] {"A", "B"}));
        assertIds(withTexts("D", "b"), selectFirst(table, f -> f.minimums = new String[] {"C", "D"}));
        assertIds(withTexts("A", "B", "C", "D", "b", "", "BB"),
                selectFirst(table, f -> f.minimums = new String[] {null}));
    }

    @Test
    void aTextInAnyRangeOrAmongTheValuesIsSelected() {
        long table = table();
        assertIds(withTexts("A", "BB", "b"), selectFirst(table, f -> {
            f.values = new String[] {"b"};
            f.minimums = new String[] {"B", null};
            f.maximums = new String[] {"C", "B"};
        }).stream().filter(i -> !text(i).isEmpty()).toList());
    }

    @Test
    void ignoringTheCaseHoldsForValuesAndNotForRanges() {
        long table = table();
        assertIds(withTexts("B", "b"), selectFirst(table, f -> {
            f.values = new String[] {"b"};
            f.ignoreCase = true;
        }));
        assertIds(withTexts("B", "b", "BB"), selectFirst(table, f -> {
            f.values = new String[] {"bb", "B", "a-z"};
            f.ignoreCase = true;
        }));
        assertIds(withTexts("b"), selectFirst(table, f -> {
            f.minimums = new String[] {"a"};
            f.maximums = new String[] {"c"};
            f.ignoreCase = true;
        }));
    }

    @Test
    void onlyAsciiLettersAreFolded() {
        long table = open(provider().strings("first", "second"), Natives.WRITE);
        String[] texts = {"\u00e4", "\u00c4", "a", "A", "[", "{"};
        for (int i = 0; i < texts.length; ++i) {
            int at = i;
            write(table, m -> {
                m.uniformId = at + 1;
                m.strings = new String[] {texts[at], null};
            });
        }
        assertIds(ids(1), selectFirst(table, f -> {
            f.values = new String[] {"\u00e4"};
            f.ignoreCase = true;
        }));
        assertIds(ids(3, 4, 5), selectFirst(table, f -> {
            f.values = new String[] {"[", "A"};
            f.ignoreCase = true;
        }));
    }

    @ParameterizedTest
    @ValueSource(ints = {BUILT_IN_0, BUILT_IN_1, FIRST, SECOND, WIRE, NON_METADATA})
    void theFieldIdIsTheSlotOfTheMessage(int slot) {
        long table = table((m, text) -> {
            m.builtIn0 = slot == BUILT_IN_0 ? text : "x";
            m.builtIn1 = slot == BUILT_IN_1 ? text : "x";
            m.strings = new String[] {slot == FIRST ? text : "x", slot == SECOND ? text : "x"};
            m.wire = slot == WIRE ? text : "x";
            m.nonMetadata = slot == NON_METADATA ? text : "x";
        });
        assertIds(withTexts("D"), select(table, RawConditions.string(slot, f -> f.values = new String[] {"D"})));
        assertIds(withTexts("", null), select(table, RawConditions.string(slot, f -> f.includeNull = true)));
    }

    @Test
    void theSlotBehindTheTextsIsTheMsgType() {
        long table = table((m, text) -> m.msgType = text == null || text.isEmpty() ? "ABCDE" : text);
        assertIds(withTexts("B", "D"),
                select(table, RawConditions.string(MSG_TYPE, f -> f.values = new String[] {"D", "B"})));
        assertIds(withTexts("", null),
                select(table, RawConditions.string(MSG_TYPE, f -> f.values = new String[] {"ABCDEF"})),
                "five characters are compared");
        assertIds(withTexts("C", "BB"), select(table, RawConditions.string(MSG_TYPE, f -> {
            f.minimums = new String[] {"B"};
            f.maximums = new String[] {"D"};
        })));
    }

    @Test
    void aFilterOnTheMsgTypeKnowsNoAbsenceAndRegardsTheCase() {
        long table = table((m, text) -> m.msgType = text == null || text.isEmpty() ? "Z" : text);
        assertIds(List.of(), select(table, RawConditions.string(MSG_TYPE, f -> f.includeNull = true)));
        assertIds(withTexts("b"), select(table, RawConditions.string(MSG_TYPE, f -> {
            f.values = new String[] {"b"};
            f.ignoreCase = true;
        })));
    }

    @ParameterizedTest
    @CsvSource({"7", "-1", "2147483647", "-2147483648"})
    void aFilterOnAFieldThatThereIsNotIsIgnoredWithANote(int id) {
        long table = table();
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertEquals(LAST, rest(query(table, RawConditions.string(id, f -> f.values = new String[] {"x"}))).size());
        String note = "Tabulo/C NOTE: mfr_compareStr(): internal error: index number " + id
                + " is out of range [0..";
        assertTrue(facility.notes().startsWith(note), facility::notes);
        assertEquals(1, facility.notes().split("NOTE").length - 1, "one note for the one closed block");
    }

    @Test
    void everyFilterMustAccept() {
        long table = table((m, text) -> {
            m.strings = new String[] {text, m.uniformId % 3 == 0 ? "x" : "y"};
            m.builtIn0 = m.uniformId % 5 == 0 ? "five" : null;
        });
        RawConditions three = RawConditions.string(FIRST, f -> f.values = new String[] {"A", "B", "C"})
                .andString(SECOND, f -> f.values = new String[] {"x"})
                .andString(BUILT_IN_0, f -> f.values = new String[] {"five"});
        assertIds(idsWhere(1, LAST, i -> i % 15 == 0 && List.of("A", "B", "C").contains(String.valueOf(text(i)))),
                select(table, three));
    }

    @Test
    void textsAreComparedUpToTheirFirstNul() {
        long table = open(provider().strings("first", "second"), Natives.WRITE);
        String[] wires = {"AB", "AB\0CD", "ABC", "\0AB"};
        for (int i = 0; i < wires.length; ++i) {
            int at = i;
            Natives.writeBytes(table, Message.of(m -> {
                m.uniformId = at + 1;
                m.strings = new String[2];
                m.typeMap = new int[0];
                m.setWire(latin1(wires[at]));
            }));
        }
        assertIds(ids(1, 2), select(table, RawConditions.string(WIRE, f -> f.values = new String[] {"AB"})));
        assertIds(ids(4), select(table, RawConditions.string(WIRE, f -> f.values = new String[] {""})));
        assertIds(ids(3), select(table, RawConditions.string(WIRE, f -> f.minimums = new String[] {"AB"})));
    }

    @Test
    void theSameFieldMayHaveTwoFilters() {
        long table = table();
        RawConditions twice = RawConditions.string(FIRST, f -> {
            f.minimums = new String[] {"B"};
            f.maximums = new String[] {"D"};
        });
        twice.stringIds = new int[] {FIRST, FIRST};
        assertIds(withTexts("C", "BB"), select(table, twice));
    }
}
