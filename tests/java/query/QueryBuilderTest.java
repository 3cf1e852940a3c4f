package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageNumericField;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditionsBuilder;
import com.corvane.kestrova.engine.tabulo.MessageStringField;
import com.corvane.kestrova.engine.tabulo.NumericFieldFilter;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.function.Predicate;
import java.util.function.UnaryOperator;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.EnumSource;
import org.junit.jupiter.params.provider.ValueSource;

/** What the builder's conditions select from a table of two closed blocks and an open one. */
class QueryBuilderTest {
    private static final int LAST = 2222;

    @TempDir
    static Path directory;

    private static TableConfiguration configuration;
    private static JNITboMessageTable table;

    @BeforeAll
    static void store() {
        Natives.load();
        configuration = TableConfiguration.builder("orders", directory).stringFields("ClOrdID", "Symbol")
                .numericFields("OrderQty", "Price").build();
        table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        for (int i = 1; i <= LAST; ++i) {
            byte[] wire = ("wire" + i % 12).getBytes();
            byte[] other = ("other" + i % 13).getBytes();
            table.writeMessage(i, i - 50, -i, messageClass(i).firstId() + i, 5_000L + i, ' ', "T" + i % 11, i % 2 == 0,
                    i % 3 == 0, "from" + i % 14, "to" + i % 15, wire, 0, wire.length, null, 0, 0, other, 0,
                    other.length, new String[] {"id" + i, i % 4 == 0 ? null : "SYM" + i % 4},
                    new int[] {i % 5 == 0 ? 0 : 1, -1}, new long[] {i % 9}, new double[] {i / 2.0});
        }
    }

    @AfterAll
    static void close() {
        table.close();
        JNITboLibLoader.uninitLibrary();
    }

    private static MessageClass messageClass(int i) {
        return MessageClass.values()[i % 5];
    }

    private static List<Integer> where(Predicate<Integer> condition) {
        return IntStream.rangeClosed(1, LAST).boxed().filter(condition).toList();
    }

    private static List<Integer> select(MessageQueryConditionsBuilder conditions) {
        List<Integer> ids = new ArrayList<>();
        try (JNITboMessageTableIterator messages = table.getMessages(conditions.build())) {
            while (messages.next()) {
                ids.add(messages.getUniformMessageId());
            }
        }
        return ids;
    }

    /** The condition selects exactly these, forwards and backwards. */
    private static void assertSelects(Predicate<Integer> expected,
            UnaryOperator<MessageQueryConditionsBuilder> condition) {
        List<Integer> ids = where(expected);
        assertFalse(ids.isEmpty(), "the test itself selects nothing");
        OnQueries.assertIds(ids, select(condition.apply(MessageQueryConditions.builder(configuration))));
        List<Integer> backwards = new ArrayList<>(ids);
        Collections.reverse(backwards);
        OnQueries.assertIds(backwards,
                select(condition.apply(MessageQueryConditions.builder(configuration)).backward()));
    }

    @Test
    void sequenceNumbersTimesAndIds() {
        assertSelects(i -> true, b -> b);
        assertSelects(i -> i - 50 >= -3 && i - 50 <= 3, b -> b.seqNumRange(-3, 3));
        assertSelects(i -> i - 50 >= 2000, b -> b.seqNumFrom(2000));
        assertSelects(i -> i >= 995 && i <= 1005, b -> b.startingTime(5_995).endingTime(6_005));
        int first = MessageClass.RESENT.firstId();
        assertSelects(i -> i % 5 == 4 && i >= 900 && i <= 1100, b -> b.messageIdRange(first + 900, first + 1100));
        assertSelects(i -> i % 5 == 4 && i >= 2000 || i % 5 == 1 && i <= 50,
                b -> b.messageIdRanges(new int[] {first + 2000, 0}, new int[] {50}));
    }

    @ParameterizedTest
    @EnumSource(MessageClass.class)
    void eachClassOfItsOwn(MessageClass wanted) {
        assertSelects(i -> messageClass(i) == wanted, b -> b.messageClasses(wanted));
        assertSelects(i -> messageClass(i) == wanted || messageClass(i) == MessageClass.APP_TO,
                b -> b.messageClasses(MessageClass.APP_TO, wanted));
    }

    @Test
    void possDupAndMsgTypes() {
        assertSelects(i -> i % 2 == 0, b -> b.possDup(true));
        assertSelects(i -> i % 2 != 0, b -> b.possDup(false));
        assertSelects(i -> i % 11 != 7 && i % 11 != 10, b -> b.excludeMsgTypes("T7", "T10"));
    }

    @Test
    void configuredStringFields() {
        assertSelects(i -> i == 1234, b -> b.string("ClOrdID", StringFieldFilter.anyOf("id1234")));
        assertSelects(i -> i % 4 == 3, b -> b.string("Symbol", StringFieldFilter.anyOf("SYM3")));
        assertSelects(i -> i % 4 == 0, b -> b.string("Symbol", StringFieldFilter.anyOf().orAbsent()));
        assertSelects(i -> i % 4 == 2, b -> b.string("Symbol", StringFieldFilter.between("SYM1", "SYM3")));
        assertSelects(i -> i % 4 == 1, b -> b.string("Symbol", StringFieldFilter.anyOf("sym1").ignoringCase()));
    }

    @Test
    void stringFieldsThatEveryMessageHas() {
        assertSelects(i -> i % 14 == 3,
                b -> b.string(MessageStringField.BUILT_IN_0, StringFieldFilter.anyOf("from3")));
        assertSelects(i -> i % 15 == 4, b -> b.string(MessageStringField.BUILT_IN_1, StringFieldFilter.anyOf("to4")));
        assertSelects(i -> i % 12 == 5,
                b -> b.string(MessageStringField.WIRE_MESSAGE, StringFieldFilter.anyOf("wire5")));
        assertSelects(i -> i % 13 == 6,
                b -> b.string(MessageStringField.NON_METADATA_FIELDS, StringFieldFilter.anyOf("other6")));
        assertSelects(i -> i % 11 == 7, b -> b.string(MessageStringField.MSG_TYPE, StringFieldFilter.anyOf("T7")));
    }

    @Test
    void configuredNumericFields() {
        assertSelects(i -> i % 5 != 0 && i % 9 == 4, b -> b.numeric("OrderQty", NumericFieldFilter.anyOfLongs(4)));
        assertSelects(i -> i % 5 == 0 || i % 9 == 4,
                b -> b.numeric("OrderQty", NumericFieldFilter.anyOfDoubles(4).orAbsent()));
        assertSelects(i -> i >= 2000 && i < 2010,
                b -> b.numeric("Price", NumericFieldFilter.anyOfDoubles(1000).orBetween(1000, 1005)));
    }

    @Test
    void numbersOfTheMetadata() {
        assertSelects(i -> i == 1001, b -> b.numeric(MessageNumericField.UNIFORM_ID,
                NumericFieldFilter.anyOfLongs(1001)));
        assertSelects(i -> i > 1051, b -> b.numeric(MessageNumericField.SEQ_NUM,
                NumericFieldFilter.betweenLongs(1001, Long.MAX_VALUE)));
        assertSelects(i -> i < 10, b -> b.numeric(MessageNumericField.PREV_SEQ_NUM,
                NumericFieldFilter.betweenLongs(-10, 0)));
        int first = MessageClass.ADMIN_TO.firstId();
        assertSelects(i -> i == 1003, b -> b.numeric(MessageNumericField.CONN_MSG_ID,
                NumericFieldFilter.anyOfLongs(first + 1003)));
        assertSelects(i -> i == 2000, b -> b.numeric(MessageNumericField.TIMESTAMP,
                NumericFieldFilter.anyOfDoubles(7000)));
        assertSelects(i -> i % 2 == 0, b -> b.numeric(MessageNumericField.POSS_DUP, NumericFieldFilter.anyOfLongs(1)));
        assertSelects(i -> i % 3 != 0,
                b -> b.numeric(MessageNumericField.OUT_OF_SEQUENCE, NumericFieldFilter.anyOfLongs(0)));
    }

    @Test
    void conditionsTogether() {
        assertSelects(i -> i >= 950 && i <= 1100 && i % 4 == 1 && i % 5 != 0 && i % 9 < 3 && i % 2 != 0,
                b -> b.startingTime(5_950).endingTime(6_100).string("Symbol", StringFieldFilter.anyOf("SYM1"))
                        .numeric("OrderQty", NumericFieldFilter.betweenLongs(-1, 3)).possDup(false));
    }

    @ParameterizedTest
    @ValueSource(ints = {2, 3, -1, Integer.MAX_VALUE, Integer.MIN_VALUE})
    void tablesAreOpenedForReadingOrWritingOnly(int mode) {
        TableConfiguration other = TableConfiguration.builder("other", directory).build();
        assertFails(WRONG_PARAMETER_ERROR, () -> JNITboMessageTable.open(other, mode));
        assertFails(WRONG_PARAMETER_ERROR, () -> JNITboSessionInfoTable.open(other, mode));
        assertFalse(Files.exists(directory.resolve("other")), "nothing is created");
        assertFails(WRONG_PARAMETER_ERROR, () -> JNITboMessageTable.open(configuration, mode));
        assertEquals(LAST, table.getLastUniformMessageId(), "nothing is emptied");
    }
}
