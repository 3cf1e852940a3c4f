package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.util.Arrays;
import java.util.List;
import java.util.function.Predicate;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

/** Numeric filters, on a closed block and an open one that hold the same numbers in turn. */
class QueryNumericFilterTest extends OnQueries {
    private static final int LAST = MESSAGES_PER_BLOCK + 24;
    private static final Object[] NUMBERS = {null, 1.0, 1.5, -0.0, 2L, Double.NaN, -3L, -3.9, Double.POSITIVE_INFINITY,
        Long.MAX_VALUE, Double.NEGATIVE_INFINITY};

    private static Object number(int id) {
        return NUMBERS[id % NUMBERS.length];
    }

    /** The numbers in turn in the first of two fields, and nothing in the second. */
    private long table() {
        long table = open(provider().numerics("first", "second"), Natives.WRITE);
        for (int i = 1; i <= LAST; ++i) {
            int id = i;
            Natives.writeBytes(table, Message.of(m -> {
                m.uniformId = id;
                m.typeMap = new int[2];
                if (number(id) instanceof Double value) {
                    m.typeMap[0] = -1;
                    m.doubles = new double[] {value};
                } else if (number(id) instanceof Long value) {
                    m.typeMap[0] = 1;
                    m.longs = new long[] {value};
                }
            }));
        }
        return table;
    }

    private static List<Integer> with(Object... wanted) {
        List<Object> list = Arrays.asList(wanted);
        return where(list::contains);
    }

    private static List<Integer> where(Predicate<Object> condition) {
        return idsWhere(1, LAST, i -> condition.test(number(i)));
    }

    @Test
    void aDoubleValueSelectsItselfAndTheLongThatIsTheSame() {
        long table = table();
        assertIds(with(1.0), select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {1})));
        assertIds(with(1.5, 2L, -3L),
                select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {2, 1.5, -3, 2})));
        assertIds(with((double) Long.MAX_VALUE, Long.MAX_VALUE),
                select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {0x1p63})));
    }

    @Test
    void aLongValueSelectsTheDoublesThatAreTruncatedToIt() {
        long table = table();
        assertIds(with(1.0, 1.5), select(table, RawConditions.longs(0, f -> f.longValues = new long[] {1})));
        assertIds(with(-3L, -3.9), select(table, RawConditions.longs(0, f -> f.longValues = new long[] {-3})));
        assertIds(with(Long.MAX_VALUE, Double.POSITIVE_INFINITY),
                select(table, RawConditions.longs(0, f -> f.longValues = new long[] {Long.MAX_VALUE})),
                "what is beyond the longs becomes the nearest");
        assertIds(with(-0.0, Double.NaN),
                select(table, RawConditions.longs(0, f -> f.longValues = new long[] {0})), "not a number reads as 0");
    }

    @Test
    void zeroIsOnePointWithTwoSigns() {
        long table = table();
        assertIds(with(-0.0), select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {0.0})));
        assertIds(with(-0.0), select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {-0.0})));
    }

    @Test
    void bothBoundsOfAnIntervalAreOutsideUnlessTheyAreValuesToo() {
        long table = table();
        assertIds(with(1.5), select(table, RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {1};
            f.doubleMaximums = new double[] {2};
        })));
        assertIds(with(1.0, 1.5, 2L), select(table, RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {1};
            f.doubleMaximums = new double[] {2};
            f.doubleValues = new double[] {2, 1};
        })));
        assertIds(List.of(), select(table, RawConditions.longs(0, f -> {
            f.longMinimums = new long[] {1};
            f.longMaximums = new long[] {2};
        })), "there is no long between");
    }

    @Test
    void theInfinitiesLieOutsideTheWidestInterval() {
        long table = table();
        Predicate<Object> isFinite = number -> number instanceof Long
                || number instanceof Double value && !value.isNaN() && !value.isInfinite();
        assertIds(where(isFinite), select(table, RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {Double.NEGATIVE_INFINITY};
            f.doubleMaximums = new double[] {Double.POSITIVE_INFINITY};
        })));
    }

    @Test
    void intervalsThatSelectNothingAreDropped() {
        long table = table();
        assertIds(with(1.5), select(table, RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {2, 1.5, Double.NaN, 0, 1.25};
            f.doubleMaximums = new double[] {1, 1.5, 9, Double.NaN, 1.75};
        })));
    }

    @Test
    void valuesThatAreNotANumberSelectNothing() {
        long table = table();
        assertEquals(List.of(),
                select(table, RawConditions.doubles(0, f -> f.doubleValues = new double[] {Double.NaN})));
    }

    @Test
    void aNullMinimumOrMaximumArrayIsNoIntervalAtAll() {
        long table = table();
        assertIds(with(1.0), select(table, RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {-10, -20};
            f.doubleValues = new double[] {1};
        })));
        assertIds(with(2L), select(table, RawConditions.longs(0, f -> {
            f.longMaximums = new long[] {10};
            f.longValues = new long[] {2};
        })));
    }

    @Test
    void aFilterWithNothingInItSelectsNothing() {
        long table = table();
        assertIds(List.of(), select(table, RawConditions.doubles(0, f -> { })));
        assertIds(List.of(), select(table, RawConditions.longs(0, f -> f.includeNull = false)));
    }

    @Test
    void includingTheAbsentSelectsWhatIsNotANumberOnlyAmongDoubles() {
        long table = table();
        assertIds(with(null, Double.NaN), select(table, RawConditions.doubles(0, f -> f.includeNull = true)));
        assertIds(with((Object) null), select(table, RawConditions.longs(0, f -> f.includeNull = true)));
        assertEquals(LAST, select(table, RawConditions.longs(1, f -> f.includeNull = true)).size());
        assertIds(List.of(), select(table, RawConditions.longs(1, f -> f.longValues = new long[] {0})));
    }

    /** Messages whose metadata all differ. */
    private long metadataTable() {
        long table = open(provider().numerics("first", "second"), Natives.WRITE);
        for (int i = 1; i <= LAST; ++i) {
            int id = i;
            write(table, m -> {
                m.uniformId = id;
                m.seqNum = id + 10_000;
                m.prevSeqNum = -id;
                m.connMsgId = id + 30_000;
                m.timestamp = id + 40_000;
                m.possDup = id % 2 == 0;
                m.outOfSequence = id % 3 == 0;
            });
        }
        return table;
    }

    @ParameterizedTest
    @CsvSource({"2,1002", "3,11002", "4,-1002", "5,31002", "6,41002"})
    void fieldsBehindTheConfiguredOnesAreTheMetadata(int id, long value) {
        long table = metadataTable();
        assertIds(ids(1002), select(table, RawConditions.longs(id, f -> f.longValues = new long[] {value})));
        assertIds(ids(1002), select(table, RawConditions.doubles(id, f -> f.doubleValues = new double[] {value})));
    }

    @Test
    void theFlagsAreZeroOrOne() {
        long table = metadataTable();
        assertIds(idsWhere(1, LAST, i -> i % 2 == 0),
                select(table, RawConditions.longs(7, f -> f.longValues = new long[] {1})));
        assertIds(idsWhere(1, LAST, i -> i % 3 != 0),
                select(table, RawConditions.doubles(8, f -> f.doubleValues = new double[] {0})));
        assertIds(List.of(), select(table, RawConditions.longs(7, f -> f.longValues = new long[] {2})));
    }

    @ParameterizedTest
    @ValueSource(ints = {9, -1, Integer.MAX_VALUE, Integer.MIN_VALUE})
    void aFilterOnAFieldThatThereIsNotIsIgnoredWithANote(int id) {
        long table = metadataTable();
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertEquals(LAST, rest(query(table, RawConditions.doubles(id, f -> f.doubleValues = new double[1]))).size());
        String note = "Tabulo/C NOTE: mfr_compareNumericIndexDouble(): internal error: index number " + id
                + " is out of range [0..9)\n";
        assertEquals(note, facility.notes(), "one note for the one closed block");
        assertEquals(LAST, rest(query(table, RawConditions.longs(id, f -> f.longValues = new long[1]))).size());
        assertTrue(facility.notes().contains("mfr_compareNumericIndexLong()"), facility::notes);
    }

    @Test
    void filtersOfBothTypesMustAccept() {
        long table = table();
        RawConditions both = RawConditions.doubles(0, f -> {
            f.doubleMinimums = new double[] {1.25};
            f.doubleMaximums = new double[] {3};
        }).andNumeric(2, 2, f -> {
            f.longMinimums = new long[] {900};
            f.longMaximums = new long[] {1010};
        });
        assertIds(idsWhere(901, 1009, i -> List.of(1.5, 2L).contains(number(i) == null ? "" : number(i))),
                select(table, both));
    }

    @Test
    void manyValuesAreSearchedLikeFew() {
        long table = metadataTable();
        double[] even = idsWhere(1, LAST, i -> i % 2 == 0).stream().mapToDouble(i -> i).toArray();
        assertIds(idsWhere(1, LAST, i -> i % 2 == 0),
                select(table, RawConditions.doubles(2, f -> f.doubleValues = even)));
    }
}
