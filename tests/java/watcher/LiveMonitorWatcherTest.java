package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import java.io.File;
import java.lang.reflect.InvocationTargetException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;

/** The example that follows two tables: every message once, over its own restarts. */
class LiveMonitorWatcherTest extends OnTables {
    private static final String MONITOR = "com.corvane.kestrova.examples.LiveMonitor";
    private static final String FEW_EMPTY_BATCHES = "3";

    private long day1;
    private long day2;

    /** Starts the example from its own jar, which the tests are not compiled against. */
    static final class Launcher {
        public static void main(String[] arguments) throws ReflectiveOperationException {
            try {
                Class.forName(MONITOR).getMethod("main", String[].class).invoke(null, (Object) arguments);
            } catch (InvocationTargetException thrown) {
                throw new AssertionError(thrown.getCause());
            }
        }
    }

    @BeforeEach
    void makeTheTables() {
        day1 = openForWriting("client-day1");
        day2 = openForWriting("client-day2");
    }

    private long openForWriting(String name) {
        return open(provider().named(name).strings("ClOrdID", "Symbol", "Account").numerics("OrderQty", "Price"),
                Natives.WRITE);
    }

    private static void store(long handle, int id) {
        Message message = Message.numbered(id);
        message.wire = "35=D\00155=A" + id + "\001";
        message.strings = new String[3];
        message.doubles = new double[2];
        Natives.writeTexts(handle, message);
    }

    private ChildJvm start(String... furtherArguments) throws Exception {
        String classPath = System.getProperty("java.class.path");
        String jar = Stream.of(classPath.split(File.pathSeparator)).filter(entry -> entry.endsWith("/tabulo.jar"))
                .findFirst().orElseThrow();
        Path examples = Path.of(jar).resolveSibling("tabulo-examples.jar");
        String[] arguments = Stream.concat(Stream.of(System.getProperty("tabulo.nativeLibrary"), directory.toString(),
                directory.resolve("last-id").toString()), Stream.of(furtherArguments)).toArray(String[]::new);
        return ChildJvm.start(directory, "", List.of("-cp", classPath + File.pathSeparator + examples), Launcher.class,
                arguments);
    }

    private List<String> runToItsEnd() throws Exception {
        try (ChildJvm child = start(FEW_EMPTY_BATCHES)) {
            return child.finish().stream().filter(line -> !line.contains("[library]")).toList();
        }
    }

    @Test
    void aRestartGoesOnBehindTheLastMessage() throws Exception {
        store(day1, 1);
        store(day2, 2);
        store(day1, 3);
        assertEquals(List.of("1  35=D|55=A1|", "2  35=D|55=A2|", "3  35=D|55=A3|",
                "3 messages; the last uniform id is 3."), runToItsEnd());
        assertEquals("3", Files.readString(directory.resolve("last-id")).strip());
        assertEquals(List.of("0 messages; the last uniform id is 3."), runToItsEnd());
        store(day2, 4);
        assertEquals(List.of("4  35=D|55=A4|", "1 messages; the last uniform id is 4."), runToItsEnd());
    }

    @Test
    void messagesAreShownWhileTheyAreStoredAndAKillLosesNothing() throws Exception {
        store(day2, 1);
        try (ChildJvm child = start()) {
            child.awaitLine("1  35=D|55=A1|");
            store(day1, 2);
            child.awaitLine("2  35=D|55=A2|");
            store(day2, 3);
            child.awaitLine("3  35=D|55=A3|");
            child.kill();
        }
        store(day1, 4);
        List<String> lines = runToItsEnd();
        // The kill may fall between the print of message 3 and the store of its id.
        assertEquals("4  35=D|55=A4|", lines.get(lines.size() - 2), lines::toString);
        assertFalse(lines.contains("2  35=D|55=A2|"), lines::toString);
    }
}
