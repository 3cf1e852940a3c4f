package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_LIMIT_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;
import org.junit.jupiter.params.provider.ValueSource;

/** From the host's configuration provider to a table. */
class ConfigurationProviderTest extends OnTables {
    /** Each class down to HasAll lacks one method less. */
    static class HasName {
        public String getTableName() {
            return "orders";
        }
    }

    static class HasRoot extends HasName {
        public String getDbRoot() {
            return "/nowhere/";
        }
    }

    static class HasReplicas extends HasRoot {
        public String[] getReplicasDbRoots() {
            return null;
        }
    }

    static class HasStrings extends HasReplicas {
        public String[] getStringFieldsNames() {
            return null;
        }
    }

    static class HasNumerics extends HasStrings {
        public String[] getNumericFieldsNames() {
            return null;
        }
    }

    static class HasAll extends HasNumerics {
        public int[] getSessionInfoTableTags() {
            return null;
        }
    }

    /** Has a method of that name with another result. */
    static class WrongResult {
        public Object getTableName() {
            return "orders";
        }
    }

    static Stream<Object> incompleteProviders() {
        return Stream.of(new Object(), new HasName(), new HasRoot(), new HasReplicas(), new HasStrings(),
                new HasNumerics(), new WrongResult());
    }

    private void assertNotOpened(int code, Object provider) throws IOException {
        assertFails(code, () -> open(provider, Natives.WRITE));
        try (Stream<Path> entries = Files.list(directory)) {
            assertEquals(0, entries.count(), "no file is made");
        }
    }

    @ParameterizedTest
    @MethodSource("incompleteProviders")
    void aMissingMethodIsAJniError(Object incomplete) throws IOException {
        assertNotOpened(JNI_ERROR, incomplete);
    }

    @Test
    void theSixMethodsAreAllThatIsNeeded() {
        assertFails(FILE_OPEN_ERROR, () -> open(new HasAll(), Natives.WRITE));
    }

    @Test
    void aNullProviderIsAJniError() throws IOException {
        assertNotOpened(JNI_ERROR, null);
    }

    @Test
    void theMethodsAreCalledOnceEachInTheirOrder() {
        Provider provider = provider();
        open(provider, Natives.WRITE);
        assertEquals(List.of("getTableName", "getDbRoot", "getReplicasDbRoots", "getStringFieldsNames",
                "getNumericFieldsNames", "getSessionInfoTableTags"), provider.calls);
    }

    @ParameterizedTest
    @ValueSource(ints = {0, 1, 2, 3, 4, 5})
    void aMethodThatThrowsIsAJniError(int method) throws IOException {
        class Throwing extends Provider {
            Throwing() {
                super(directory);
            }

            private <T> T unless(int number, T value) {
                if (method == number) {
                    throw new UnsupportedOperationException("thrown by a provider on purpose");
                }
                return value;
            }

            @Override
            public String getTableName() {
                return unless(0, super.getTableName());
            }

            @Override
            public String getDbRoot() {
                return unless(1, super.getDbRoot());
            }

            @Override
            public String[] getReplicasDbRoots() {
                return unless(2, super.getReplicasDbRoots());
            }

            @Override
            public String[] getStringFieldsNames() {
                return unless(3, super.getStringFieldsNames());
            }

            @Override
            public String[] getNumericFieldsNames() {
                return unless(4, super.getNumericFieldsNames());
            }

            @Override
            public int[] getSessionInfoTableTags() {
                return unless(5, super.getSessionInfoTableTags());
            }
        }

        Throwing provider = new Throwing();
        assertNotOpened(JNI_ERROR, provider);
        assertEquals(method + 1, provider.calls.size(), "no method is called behind the one that threw");
    }

    @Test
    void aNullNameOrRootIsANullPointer() throws IOException {
        assertNotOpened(NULL_POINTER_ERROR, provider().named(null));
        assertNotOpened(NULL_POINTER_ERROR, new Provider(null));
    }

    @Test
    void aNullElementOfAnArrayIsANullPointer() throws IOException {
        Provider replicas = provider();
        replicas.replicas = new String[] {directory + "/a/", null};
        assertNotOpened(NULL_POINTER_ERROR, replicas);
        assertNotOpened(NULL_POINTER_ERROR, provider().strings("a", null));
        assertNotOpened(NULL_POINTER_ERROR, provider().numerics(null, "b"));
    }

    @Test
    void twelveStringFieldsAreAcceptedAndThirteenAreNot() throws IOException {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertNotOpened(STRING_FIELDS_LIMIT_ERROR, provider().strings(Provider.names("s", 13)));
        assertEquals("Tabulo/C WARNING: tableConfig_addStringFieldName(): "
                + "Number of configured string fields exceeds limit (12)\n", facility.warnings());
        open(provider().strings(Provider.names("s", 12)), Natives.WRITE);
    }

    @Test
    void sixteenNumericFieldsAreAcceptedAndSeventeenAreNot() throws IOException {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        assertNotOpened(NUMERIC_FIELDS_LIMIT_ERROR, provider().numerics(Provider.names("n", 17)));
        assertEquals("Tabulo/C WARNING: tableConfig_addNumericFieldName(): "
                + "Number of configured numeric fields exceeds limit (16)\n", facility.warnings());
        open(provider().numerics(Provider.names("n", 16)), Natives.WRITE);
    }

    @Test
    void thirtyTwoTagsAreAcceptedAndThirtyThreeAreNot() throws IOException {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        Provider tooMany = provider();
        tooMany.tags = range(1, 33);
        assertNotOpened(INDEX_OUT_OF_BOUNDS_ERROR, tooMany);
        assertEquals("Tabulo/C WARNING: jniConfigProvider_make(): "
                + "Number of configured session info table fields exceeds limit (32)\n", facility.warnings());
        Provider most = provider();
        most.tags = range(1, 32);
        open(most, Natives.WRITE);
    }

    @Test
    void tooManyStringFieldsAreReportedBeforeTooManyNumericOnesAndTags() throws IOException {
        Provider provider = provider().strings(Provider.names("s", 13)).numerics(Provider.names("n", 17));
        provider.tags = range(1, 33);
        assertNotOpened(STRING_FIELDS_LIMIT_ERROR, provider);
        provider.strings = null;
        assertNotOpened(NUMERIC_FIELDS_LIMIT_ERROR, provider);
    }

    @Test
    void emptyArraysAreAsGoodAsNullOnes() {
        Provider provider = provider().strings().numerics();
        provider.replicas = new String[0];
        provider.tags = new int[0];
        close(open(provider, Natives.WRITE));
        openForWriting();
    }

    @Test
    void replicasAreTakenButNotOpened() throws IOException {
        Path replica = Files.createDirectory(directory.resolve("replica"));
        Provider provider = provider();
        provider.replicas = new String[] {replica + "/", directory + "/missing/", ""};
        long handle = open(provider, Natives.WRITE);
        write(handle, m -> m.wire = "x");
        assertTrue(Files.exists(file()));
        assertFalse(Files.exists(directory.resolve("missing")));
        try (Stream<Path> entries = Files.list(replica)) {
            assertEquals(0, entries.count());
        }
    }

    @Test
    void aRootWithoutASlashIsJoinedByABackslash() {
        Provider provider = provider();
        provider.dbRoot = directory + "/root";
        open(provider, Natives.WRITE);
        assertTrue(Files.exists(directory.resolve("root\\orders")));
    }

    @Test
    void aRootThatEndsInABackslashIsJoinedDirectly() {
        Provider provider = provider();
        provider.dbRoot = directory + "/root\\";
        open(provider, Natives.WRITE);
        assertTrue(Files.exists(directory.resolve("root\\orders")));
    }

    @Test
    void aDefaultTableHasAHeaderOf140BytesAndNamesMakeItLonger() throws IOException {
        close(openForWriting());
        assertEquals(140, Files.size(file()));
        open(provider().named("fields").strings("ab", "").numerics("n"), Natives.WRITE);
        byte[] header = Files.readAllBytes(directory.resolve("fields"));
        assertEquals(140 + 4 + 3 + 4 + 4 + 2, header.length, "lengths, names and their NULs; the empty name has none");
        ByteBuffer in = ByteBuffer.wrap(header).order(ByteOrder.nativeOrder());
        assertEquals(header.length, in.getInt(15));
        assertEquals(1000, in.getInt(36));
        assertEquals(6, in.getInt(40));
        assertEquals(4, in.getInt(44));
        assertEquals(1, in.getInt(48));
    }

    @Test
    void fieldNamesAreStoredAsModifiedUtf8() throws IOException {
        open(provider().strings("\u00E9\uD83D\uDE00"), Natives.WRITE);
        ByteBuffer in = ByteBuffer.wrap(fileBytes()).order(ByteOrder.nativeOrder());
        assertEquals(9, in.getInt(52));
        byte[] name = new byte[9];
        in.get(56, name);
        assertEquals("\u00C3\u00A9\u00ED\u00A0\u00BD\u00ED\u00B8\u0080\0",
                new String(name, StandardCharsets.ISO_8859_1));
    }

    @Test
    void nothingOfTheProviderIsNeededOnceTheTableIsOpen() {
        String[] names = {"a"};
        Provider provider = provider().strings(names);
        long handle = open(provider, Natives.WRITE);
        names[0] = "changed";
        provider.tableName = null;
        write(handle, m -> m.strings = new String[] {"v"});
        close(handle);
        open(provider().strings("a"), Natives.WRITE);
    }
}
