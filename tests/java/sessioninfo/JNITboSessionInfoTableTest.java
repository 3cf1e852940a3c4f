package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONFIG_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.IOException;
import java.lang.reflect.Field;
import org.junit.jupiter.api.Test;

/** The peer that a host uses. */
class JNITboSessionInfoTableTest extends OnSessionTables {
    private TableConfiguration configuration(int... tags) {
        return TableConfiguration.builder("session", directory).sessionInfoTags(tags).build();
    }

    private JNITboSessionInfoTable writer(int... tags) {
        return JNITboSessionInfoTable.open(configuration(tags), JNITboSessionInfoTable.MODE_WRITE);
    }

    private JNITboSessionInfoTable reader(int... tags) {
        return JNITboSessionInfoTable.open(configuration(tags), JNITboSessionInfoTable.MODE_READ);
    }

    private static long handleOf(JNITboSessionInfoTable table) throws ReflectiveOperationException {
        Field handle = JNITboSessionInfoTable.class.getDeclaredField("nativeHandle_");
        assertEquals(long.class, handle.getType());
        handle.setAccessible(true);
        return handle.getLong(table);
    }

    @Test
    void valuesAreWrittenReadAndKept() throws IOException {
        try (JNITboSessionInfoTable table = writer()) {
            table.write(4, 44);
            table.write(new int[] {2, 6}, new long[] {-22, Long.MAX_VALUE});
            assertArrayEquals(new long[] {44, -22, 0, Long.MAX_VALUE}, table.read(4, 2, 1, 6));
        }
        assertFile(DEFAULT_TAGS, -22, 0, 0, 44, 0, Long.MAX_VALUE);
        try (JNITboSessionInfoTable table = reader()) {
            assertArrayEquals(new long[] {44, -22}, table.read(4, 2));
            assertArrayEquals(new long[0], table.read());
        }
    }

    @Test
    void configuredTagsReachTheFile() throws IOException {
        try (JNITboSessionInfoTable table = writer(70, 71)) {
            table.write(71, 5);
        }
        assertFile(new int[] {70, 71}, 0, 5);
        assertFails(CONFIG_MISMATCH_ERROR, () -> reader(72));
    }

    @Test
    void droppingClearsEveryValue() throws IOException {
        try (JNITboSessionInfoTable table = writer()) {
            table.write(4, 44);
            table.drop();
            assertArrayEquals(new long[6], table.read(DEFAULT_TAGS));
        }
        assertFile(DEFAULT_TAGS, new long[6]);
    }

    @Test
    void failuresComeThroughThePeer() {
        try (JNITboSessionInfoTable table = writer()) {
            assertFails(NO_DATA_ERROR, () -> table.read(99));
            assertFails(WRONG_PARAMETER_ERROR, () -> table.write(99, 1));
            assertFails(JNI_ERROR, () -> table.write(new int[] {1, 2}, new long[] {1}));
            assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> table.read(new int[33]));
            assertArrayEquals(new long[6], table.read(DEFAULT_TAGS), "the table stays usable");
        }
    }

    @Test
    void aClosedTableRefusesEveryUseAndMayBeClosedAgain() throws ReflectiveOperationException {
        JNITboSessionInfoTable table = writer();
        table.close();
        assertEquals(0, handleOf(table));
        table.close();
        assertFails(TABLE_CLOSED_ERROR, () -> table.read(1));
        assertFails(TABLE_CLOSED_ERROR, () -> table.write(1, 1));
        assertFails(TABLE_CLOSED_ERROR, () -> table.write(new int[] {1}, new long[] {1}));
        assertFails(TABLE_CLOSED_ERROR, table::drop);
        writer().close();
    }

    @Test
    void closingReleasesTheFile() {
        JNITboSessionInfoTable table = writer();
        assertThrows(JNITboException.class, this::writer);
        table.close();
        writer().close();
    }
}
