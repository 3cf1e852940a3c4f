package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONFIG_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_NAMES_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_NAMES_MISMATCH_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** A table opened with another configuration than it was created with: the codes, and warnings that show both. */
class ConfigMismatchTest extends OnTables {
    private static final String PREFIX = "Tabulo/C WARNING: mtX_verify(): ";

    private RecordingFacility facility;

    @BeforeEach
    void makeATable() {
        close(open(provider().strings("ClOrdID", "Symbol").numerics("OrderQty", "Price"), Natives.WRITE));
        facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
    }

    private void assertMismatch(int code, String warnings, Provider provider) throws IOException {
        byte[] before = fileBytes();
        for (int mode : new int[] {Natives.READ, Natives.WRITE}) {
            facility.pieces.clear();
            assertFails(code, () -> open(provider, mode));
            assertEquals(warnings, facility.warnings());
            assertArrayEquals(before, fileBytes(), "the file is left untouched");
        }
    }

    private String detail(int configured, String configuredNames, int stored, String storedNames) {
        return file() + ":\n\tread from config: " + configured + " (" + configuredNames + "),\n\tstored in table : "
                + stored + " (" + storedNames + ")\n";
    }

    @Test
    void anotherNumberOfStringFields() throws IOException {
        assertMismatch(STRING_FIELDS_COUNT_MISMATCH_ERROR,
                PREFIX + "Configured string fields count mismatch in "
                        + detail(3, "ClOrdID, Symbol, Account", 2, "ClOrdID, Symbol"),
                provider().strings("ClOrdID", "Symbol", "Account").numerics("OrderQty", "Price"));
    }

    @Test
    void noStringFieldsAtAll() throws IOException {
        assertMismatch(STRING_FIELDS_COUNT_MISMATCH_ERROR,
                PREFIX + "Configured string fields count mismatch in " + detail(0, "", 2, "ClOrdID, Symbol"),
                provider().numerics("OrderQty", "Price"));
    }

    @Test
    void theStringCountIsComparedBeforeEverythingElse() throws IOException {
        assertMismatch(STRING_FIELDS_COUNT_MISMATCH_ERROR,
                PREFIX + "Configured string fields count mismatch in " + detail(1, "other", 2, "ClOrdID, Symbol"),
                provider().strings("other").numerics("other"));
    }

    @Test
    void anotherNumberOfNumericFields() throws IOException {
        assertMismatch(NUMERIC_FIELDS_COUNT_MISMATCH_ERROR,
                PREFIX + "Configured numeric fields count mismatch in "
                        + detail(1, "OrderQty", 2, "OrderQty, Price"),
                provider().strings("ClOrdID", "other").numerics("OrderQty"));
    }

    @Test
    void anotherNameOfAStringField() throws IOException {
        assertMismatch(STRING_FIELDS_NAMES_MISMATCH_ERROR,
                PREFIX + "Configured string field 1 name mismatch in "
                        + detail(2, "ClOrdID, symbol", 2, "ClOrdID, Symbol"),
                provider().strings("ClOrdID", "symbol").numerics("OrderQty", "Price"));
    }

    @Test
    void anotherNameOfANumericFieldIsFoundFirst() throws IOException {
        assertMismatch(NUMERIC_FIELDS_NAMES_MISMATCH_ERROR,
                PREFIX + "Configured numeric field 0 name mismatch in "
                        + detail(2, "Price, OrderQty", 2, "OrderQty, Price"),
                provider().strings("Symbol", "ClOrdID").numerics("Price", "OrderQty"));
    }

    @Test
    void namesWithAnyCharactersAreShownAsTheyAre() throws IOException {
        String name = "\u00E9\uD83D\uDE00 %s%n";
        assertMismatch(STRING_FIELDS_NAMES_MISMATCH_ERROR,
                PREFIX + "Configured string field 1 name mismatch in "
                        + detail(2, "ClOrdID, " + name, 2, "ClOrdID, Symbol"),
                provider().strings("ClOrdID", name).numerics("OrderQty", "Price"));
    }

    @Test
    void anEmptyNameIsShownAsNull() throws IOException {
        assertMismatch(NUMERIC_FIELDS_NAMES_MISMATCH_ERROR,
                PREFIX + "Configured numeric field 1 name mismatch in "
                        + detail(2, "OrderQty, <null>", 2, "OrderQty, Price"),
                provider().strings("ClOrdID", "Symbol").numerics("OrderQty", ""));
    }

    /** Offset 36 holds the messages per block, 44 the number of summarised strings. */
    @ParameterizedTest
    @ValueSource(ints = {36, 44})
    void anotherLayoutIsAMismatchWithoutAWarning(int offset) throws IOException {
        ByteBuffer table = ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
        table.putInt(offset, table.getInt(offset) - 1);
        Files.write(file(), table.array());
        assertMismatch(CONFIG_MISMATCH_ERROR, "",
                provider().strings("ClOrdID", "Symbol").numerics("OrderQty", "Price"));
    }

    @Test
    void theSameConfigurationOpensWithoutAWarning() {
        open(provider().strings("ClOrdID", "Symbol").numerics("OrderQty", "Price"), Natives.WRITE);
        assertEquals("", facility.warnings());
    }
}
