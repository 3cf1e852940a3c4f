package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_LIMIT_ERROR;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;

/** From the host's configuration provider to a session info table. */
class JNITboSessionInfoTableConfigurationTest extends OnSessionTables {
    private void assertNotOpened(int code, Object provider) throws IOException {
        assertFails(code, () -> open(provider, Natives.WRITE));
        try (Stream<Path> entries = Files.list(directory)) {
            assertEquals(List.of(), entries.toList(), "no file is made");
        }
    }

    static Stream<Object> incompleteProviders() {
        return Stream.of(new Object(), new ConfigurationProviderTest.HasName(), new ConfigurationProviderTest.HasRoot(),
                new ConfigurationProviderTest.HasReplicas(), new ConfigurationProviderTest.HasStrings(),
                new ConfigurationProviderTest.HasNumerics());
    }

    @ParameterizedTest
    @MethodSource("incompleteProviders")
    void aMissingMethodIsAJniError(Object incomplete) throws IOException {
        assertNotOpened(JNI_ERROR, incomplete);
    }

    @Test
    void aNullProviderIsAJniError() throws IOException {
        assertNotOpened(JNI_ERROR, null);
    }

    @Test
    void tagsThatCannotBeHadAreAJniError() throws IOException {
        assertNotOpened(JNI_ERROR, new Provider(directory) {
            @Override
            public int[] getSessionInfoTableTags() {
                throw new UnsupportedOperationException("thrown by a provider on purpose");
            }
        });
    }

    @Test
    void aNullNameRootOrReplicaIsANullPointer() throws IOException {
        assertNotOpened(NULL_POINTER_ERROR, provider().named(null));
        assertNotOpened(NULL_POINTER_ERROR, new Provider(null));
        Provider replicas = provider();
        replicas.replicas = new String[] {null};
        assertNotOpened(NULL_POINTER_ERROR, replicas);
    }

    @Test
    void tooManyFieldNamesAreRefusedForASessionInfoTableToo() throws IOException {
        assertNotOpened(STRING_FIELDS_LIMIT_ERROR, provider().strings(Provider.names("s", 13)));
        assertNotOpened(NUMERIC_FIELDS_LIMIT_ERROR, provider().numerics(Provider.names("n", 17)));
    }

    @Test
    void fieldNamesDoNotReachTheFile() throws IOException {
        open(provider(7).strings("a").numerics("b"), Natives.WRITE);
        assertFile(new int[] {7});
    }

    @Test
    void thirtyTwoTagsAreAcceptedAndThirtyThreeAreNot() throws IOException {
        assertNotOpened(INDEX_OUT_OF_BOUNDS_ERROR, provider(IntStream.rangeClosed(1, 33).toArray()));
        assertEquals("Tabulo/C WARNING: jniConfigProvider_make(): "
                + "Number of configured session info table fields exceeds limit (32)\n", facility.warnings());
        int[] most = IntStream.rangeClosed(1, 32).toArray();
        assertArrayEquals(new long[32], SessionNatives.read(openForWriting(most), most));
        assertFile(most);
    }

    @Test
    void nullAndEmptyTagsAreTheSixDefaultOnes() throws IOException {
        free(open(provider(), Natives.WRITE));
        assertFile(DEFAULT_TAGS);
        Files.delete(file());
        Provider empty = provider();
        empty.tags = new int[0];
        open(empty, Natives.WRITE);
        assertFile(DEFAULT_TAGS);
    }

    @Test
    void tagsMayBeAnyNumbers() throws IOException {
        int[] tags = {Integer.MIN_VALUE, -1, 0, Integer.MAX_VALUE};
        long table = openForWriting(tags);
        SessionNatives.write(table, 0, 5);
        assertFile(tags, 0, 0, 5, 0);
    }

    @Test
    void nullAndEmptyReplicasAreOneRoot() throws IOException {
        Provider none = provider();
        none.replicas = null;
        free(open(none, Natives.WRITE));
        Provider empty = provider();
        empty.replicas = new String[0];
        open(empty, Natives.WRITE);
        try (Stream<Path> entries = Files.list(directory)) {
            assertEquals(List.of(file()), entries.toList());
        }
    }

    @Test
    void configuredReplicasAreNotOpened() throws IOException {
        Path replica = Files.createDirectory(directory.resolve("replica"));
        Provider provider = provider();
        provider.replicas = new String[] {replica + "/", directory + "/missing/"};
        SessionNatives.write(open(provider, Natives.WRITE), 1, 11);
        assertFile(DEFAULT_TAGS, 0, 11, 0, 0, 0, 0);
        assertFalse(Files.exists(replica.resolve("session")));
        assertFalse(Files.exists(directory.resolve("missing")));
    }
}
