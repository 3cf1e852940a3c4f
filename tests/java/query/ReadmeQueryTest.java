package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.StoredMessage;
import java.io.IOException;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Path;
import java.time.Instant;
import java.util.List;
import java.util.function.Predicate;
import java.util.stream.IntStream;
import java.util.stream.Stream;
import javax.tools.JavaCompiler;
import javax.tools.ToolProvider;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The questions of the examples, which README.md shows: their text is compiled and run. */
class ReadmeQueryTest {
    private static final Path SOURCE = Path.of(System.getProperty("tabulo.sourceDirectory"))
            .resolve("examples/java/com/corvane/kestrova/examples/Questions.java");
    private static final int LAST = 2345;

    @TempDir
    static Path directory;

    private static URLClassLoader compiled;
    private static Class<?> questionsClass;
    private static JNITboMessageTable table;
    private static MessageStore store;

    @BeforeAll
    static void compileAndStore() throws IOException, ReflectiveOperationException {
        JavaCompiler compiler = ToolProvider.getSystemJavaCompiler();
        int status = compiler.run(null, null, null, "--release", "17", "-proc:none", "-Xlint:all,-classfile,-path",
                "-Werror", "-cp", System.getProperty("java.class.path"), "-d", directory.toString(),
                SOURCE.toString());
        assertEquals(0, status, SOURCE + " does not compile on its own");
        compiled = new URLClassLoader(new URL[] {directory.toUri().toURL()});
        questionsClass = compiled.loadClass("com.corvane.kestrova.examples.Questions");

        Natives.load();
        TableConfiguration configuration = TableConfiguration.builder("orders", directory)
                .stringFields("ClOrdID", "Symbol").build();
        table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
        for (int id = 1; id <= LAST; ++id) {
            table.writeMessage(id, seqNum(id), 0, messageClass(id).firstId() + id, 10_000 + id, ' ', msgType(id), false,
                    false, null, null, "wire " + id, null, new String[] {clOrdId(id), symbol(id)}, null);
        }
        store = MessageStore.openReader(directory.resolve("orders"));
    }

    @AfterAll
    static void close() throws IOException {
        store.close();
        table.close();
        JNITboLibLoader.uninitLibrary();
        compiled.close();
    }

    private static MessageClass messageClass(int id) {
        return MessageClass.values()[id % 5];
    }

    private static boolean isSent(int id) {
        return messageClass(id) == MessageClass.APP_TO || messageClass(id) == MessageClass.ADMIN_TO;
    }

    private static int seqNum(int id) {
        return id / 2;
    }

    private static String msgType(int id) {
        return id % 7 == 0 ? "0" : "D";
    }

    private static String clOrdId(int id) {
        return id % 7 == 0 ? null : "order-" + id / 3;
    }

    private static String symbol(int id) {
        return id % 7 == 0 ? null : "SYM" + id % 4;
    }

    private static Query question(String name, Object... arguments) {
        Class<?>[] types = new Class<?>[arguments.length];
        for (int i = 0; i < types.length; ++i) {
            types[i] = arguments[i] instanceof Integer ? int.class : arguments[i].getClass();
        }
        try {
            return (Query) questionsClass.getMethod(name, types).invoke(null, arguments);
        } catch (ReflectiveOperationException failed) {
            throw new AssertionError(failed);
        }
    }

    private static List<Integer> answers(Query question, int most) {
        try (Stream<StoredMessage> messages = store.query(question)) {
            return messages.limit(most).map(message -> {
                assertEquals("wire " + message.uniformId(), message.wireText());
                return message.uniformId();
            }).toList();
        }
    }

    private static List<Integer> all(Query question) {
        return answers(question, Integer.MAX_VALUE);
    }

    private static List<Integer> where(Predicate<Integer> condition) {
        return IntStream.rangeClosed(1, LAST).boxed().filter(condition).toList();
    }

    @Test
    void aResendRequestIsAnsweredWithWhatWasSentUnderItsNumbers() {
        OnQueries.assertIds(where(id -> isSent(id) && seqNum(id) >= 480 && seqNum(id) <= 520),
                all(question("resend", 480, 520)));
        OnQueries.assertIds(where(id -> isSent(id) && seqNum(id) >= 1100), all(question("resend", 1100, 0)));
    }

    @Test
    void anOrderIsFoundByItsId() {
        assertEquals(List.of(999, 1000), all(question("order", "order-333")), "in two blocks; 1001 is a heartbeat");
        assertEquals(List.of(99, 100, 101), all(question("order", "order-33")));
        assertEquals(List.of(), all(question("order", "nobody's")));
    }

    @Test
    void aSymbolIsFoundBetweenTwoTimes() {
        OnQueries.assertIds(where(id -> "SYM2".equals(symbol(id)) && id >= 990 && id <= 1110),
                all(question("symbolBetween", "SYM2", Instant.ofEpochMilli(10_990), Instant.ofEpochMilli(11_110))));
    }

    @Test
    void theLastTwentyComeNewestFirst() {
        OnQueries.assertIds(IntStream.range(0, 20).mapToObj(i -> LAST - i).toList(),
                answers(question("backwards"), 20));
        assertEquals(LAST, all(question("backwards")).size());
    }

    @Test
    void everythingButHeartbeatsIsEverythingElse() {
        List<Integer> expected = where(id -> id % 7 != 0);
        assertTrue(expected.size() < LAST);
        OnQueries.assertIds(expected, all(question("withoutHeartbeats")));
    }
}
