package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_WRITE_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.Path;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** What an exception tells besides its code: where it happened, the system's words, and what the caller's object threw. */
class TellingErrorsTest {
    @TempDir
    Path directory;

    private TableConfiguration configuration;

    @BeforeEach
    void load() {
        Natives.load();
        JNITboLibLoader.uninitLibrary();  // that no facility is installed keeps no warning from an exception
        configuration = TableConfiguration.builder("orders", directory).stringFields("Symbol").build();
    }

    @AfterEach
    void unload() {
        JNITboLibLoader.uninitLibrary();
    }

    private JNITboMessageTable open(int mode) {
        return JNITboMessageTable.open(configuration, mode);
    }

    private static void store(JNITboMessageTable table, int number) {
        table.writeMessage(number, number, 0, number, number, 'D', null, false, false, null, null, "wire", null,
                new String[1], null);
    }

    private static JNITboException thrownBy(int code, Executable call) {
        JNITboException thrown = assertThrows(JNITboException.class, call);
        assertEquals(code, thrown.getErrorCode());
        assertEquals(Errors.text(code), thrown.getMessage(), "the message stays the code's text");
        return thrown;
    }

    private void assertTells(JNITboException thrown, String name, String... parts) {
        assertEquals(name, thrown.getErrorName());
        assertEquals("orders", thrown.getTable());
        assertEquals(directory + "/orders", thrown.getPath());
        for (String part : parts) {
            assertTrue(thrown.getDetail().contains(part), thrown::getDetail);
        }
        for (String part : List.of(thrown.getMessage(), name, "table orders", directory + "/orders",
                thrown.getDetail())) {
            assertTrue(thrown.toString().contains(part), thrown::toString);
        }
    }

    @Test
    void aTableThatIsMissingIsNamedWithTheSystemsWords() {
        assertTells(thrownBy(FILE_OPEN_ERROR, () -> open(JNITboMessageTable.MODE_READ)), "FILE_OPEN_ERROR",
                "open of " + directory + "/orders was refused: No such file or directory",
                "Tabulo/C WARNING: tableFileOpen(): fopen() failed: No such file or directory");
    }

    @Test
    void aSecondWriterIsToldOfTheFirst() {
        try (JNITboMessageTable first = open(JNITboMessageTable.MODE_WRITE)) {
            assertTells(thrownBy(FILE_OPEN_ERROR, () -> open(JNITboMessageTable.MODE_WRITE)), "FILE_OPEN_ERROR",
                    "another process has it open for writing");
            store(first, 1);
        }
    }

    @Test
    void aFileThatMayNotGrowNamesItself() {
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            JNITboException[] thrown = new JNITboException[1];
            FileSizeLimit.during(0, () -> thrown[0] = assertThrows(JNITboException.class, () -> store(table, 2)));
            assertTells(thrown[0], thrown[0].getErrorName(), "write of " + directory + "/orders", "File too large",
                    "closed due to file write error");
            thrownBy(FILE_WRITE_ERROR, () -> store(table, 3));
        }
    }

    @Test
    void whatAListenerThrewIsTheCause() {
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            store(table, 1);
            OnPurpose thrown = new OnPurpose("a listener");
            JNITboException error = thrownBy(JNI_ERROR,
                    () -> table.readMessages(new int[] {1}, (count, timestamps, wires, others) -> {
                        throw thrown;
                    }));
            assertSame(thrown, error.getCause());
            assertNull(error.getDetail());
            assertEquals("orders", error.getTable());
            JNITboException good = thrownBy(JNI_ERROR, () -> table.getLastGoodMsgSeqNum(0, new Object()));
            assertInstanceOf(NoSuchMethodError.class, good.getCause());
        }
    }

    @Test
    void whatAProviderOrConditionsThrewIsTheCause() {
        OnPurpose thrown = new OnPurpose("a getter");
        Provider provider = new Provider(directory) {
            @Override
            public String[] getStringFieldsNames() {
                throw thrown;
            }
        };
        assertSame(thrown, thrownBy(JNI_ERROR,
                () -> JNITboMessageTable.open(provider, JNITboMessageTable.MODE_WRITE)).getCause());
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            assertSame(thrown, thrownBy(JNI_ERROR, () -> table.getMessages(new RawConditions() {
                @Override
                public Boolean getIsPossDupFlag() {
                    throw thrown;
                }
            })).getCause());
        }
    }

    @Test
    void aBackwardQueryThatFindsDamageTellsItBehindItsNullPointer() throws IOException {
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            for (int i = 1; i <= 3; ++i) {
                store(table, i);
            }
        }
        long length = directory.resolve("orders").toFile().length();
        try (JNITboMessageTable reader = open(JNITboMessageTable.MODE_READ);
                RandomAccessFile file = new RandomAccessFile(directory.resolve("orders").toFile(), "rw")) {
            file.seek(length - 4);
            file.writeInt(0x7F7F7F7F);  // the trailing length of the last message
            file.seek(length);
            file.write(new byte[64]);
            JNITboException thrown = thrownBy(NULL_POINTER_ERROR,
                    () -> reader.getMessages(MessageQueryConditions.builder(configuration).backward().build()));
            assertTrue(thrown.getDetail().contains("the query cannot be opened: error "), thrown::toString);
            assertTrue(!thrown.getDetail().contains("error 1,"), thrown::toString);
        }
    }

    @Test
    void aCodeOutsideTheListHasNoNameOfItsOwn() {
        assertEquals("UNKNOWN_ERROR", JNITboException.createUnderlyingError(39, "Unknown error").getErrorName());
        assertEquals("UNKNOWN_ERROR", JNITboException.createUnderlyingError(-1, "Unknown error").getErrorName());
        assertEquals("NO_ERROR", JNITboException.createUnderlyingError(0, "Unknown error").getErrorName());
    }

    @Test
    void conditionsOfAnotherConfigurationAreRefusedWithBothListsOfFields() {
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            TableConfiguration other = TableConfiguration.builder("others", directory).stringFields("Account", "Symbol")
                    .numericFields("Price").build();
            String message = assertThrows(IllegalArgumentException.class, () -> table.getMessages(
                    MessageQueryConditions.builder(other).string("Symbol", StringFieldFilter.anyOf("IBM")).build()))
                    .getMessage();
            for (String part : List.of("[Account, Symbol]", "[Price]", "[Symbol]", "[]")) {
                assertTrue(message.contains(part), message);
            }
        }
    }

    @Test
    void theByteOverloadTakesAsManyTextsAsThereAreFields() {
        try (JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE)) {
            for (int texts : new int[] {0, 2}) {
                thrownBy(JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR,
                        () -> table.writeMessage(1, 1, 0, 1, 1, 'D', null, false, false, null, null, new byte[1], 0, 1,
                                null, 0, 0, null, 0, 0, new String[texts], null, null, null));
            }
            assertEquals(0, table.getLastUniformMessageId());
        }
    }

    @Test
    void peersSayWhichTheyAre() {
        JNITboMessageTable table = open(JNITboMessageTable.MODE_WRITE);
        assertEquals("message table orders (" + directory + "/orders)", table.toString());
        table.close();
        assertTrue(table.toString().endsWith(", closed"), table::toString);
    }
}
