package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

/** Hosts whose Java classes are not ours: other modifiers, other supertypes, missing methods. */
class HostClassesTest extends OnTables {
    private static final String MAIN_BEGIN = """
            import com.corvane.kestrova.engine.tabulo.*;
            import com.corvane.kestrova.engine.tabulo.jni.*;
            import com.corvane.util.log.*;
            public class Main {
                static class Facility implements ILogFacility {
                    ILogger logger(String name) {
                        return new ILogger() {
                            public void write(int level, Object text) {
                                System.out.println(name + level + " " + ((String) text).replace("\\n", ""));
                            }
                        };
                    }
                    public ILogger debug() { return logger("d"); }
                    public ILogger info() { return logger("i"); }
                    public ILogger warning() { return logger("w"); }
                    public ILogger error() { return logger("e"); }
                }
                public static void main(String[] arguments) throws Throwable {
                    System.load(System.getProperty("tabulo.nativeLibrary"));
                    new JNITboLibLoader().initLibrary();
                    JNITboMessageTable table = new JNITboMessageTable();
            """;

    private List<String> errors;

    private List<String> run(String main, String... classes) throws Exception {
        String[] sources = Arrays.copyOf(classes, classes.length + 2);
        sources[classes.length] = HostClasses.PROVIDER;
        sources[classes.length + 1] = MAIN_BEGIN + main + "}}";
        HostClasses.compile(directory, List.of(), sources);
        try (ChildJvm child = ChildJvm.start(directory, "", List.of("-cp", directory.toString()), null)) {
            List<String> output = child.finish();
            errors = child.errors();
            return output;
        }
    }

    @Test
    void aHostWithItsOwnClassesStoresReadsAndLooksUp() throws Exception {
        List<String> output = run("""
                new JNITboLibLoader().setLogFacility(new Facility());
                long handle = table.initializeNative(new HostProvider(), 1);
                class Writer extends JNITboMessageTable {
                    void store(long handle) {
                        writeMessage(handle, 1, 4, 0, 7, 99L, 'D', "AE", false, false, "a", "b", "wire", null,
                                new String[] {"IBM"}, null);
                    }
                }
                new Writer().store(handle);
                table.readMessages(handle, new int[] {7}, 1, new IKSVTboMessageListener() {
                    protected int onGetMessages(int count, long[] times, byte[][] wires, byte[][] others) {
                        System.out.println("read " + count + " " + times[0] + " " + new String(wires[0]) + " "
                                + others[0]);
                        return 0;
                    }
                });
                class Holder {
                    private void setValue(long value) {
                        System.out.println("held " + value);
                    }
                }
                System.out.println("good " + table.getLastGoodMsgSeqNum(handle, 0, new Holder()));
                try {
                    JNITboMessageTable.getLastMessageId(handle, -1);
                } catch (Exception thrown) {
                    System.out.println("thrown " + thrown.getMessage());
                }
                table.closeNative(handle);
                table.uninitializeNative(handle);
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.EXCEPTION, HostClasses.LISTENER,
                HostClasses.FACILITY, HostClasses.LOGGER);
        for (String line : List.of("read 1 99 wire null", "held 99", "good 4", "thrown 20: Index out of bounds",
                "w2 Tabulo/C WARNING: mt_getLastMessageId(): ", "w2 Connection message id offset (-1) out of bounds")) {
            assertTrue(output.contains(line), () -> "\"" + line + "\" is missing in " + output);
        }
        assertTrue(Files.exists(directory.resolve("host")));
    }

    @Test
    void aFacilityInterfaceWithoutTheWarningMethodLeavesWarningsOnStandardError() throws Exception {
        List<String> output = run("""
                new JNITboLibLoader().setLogFacility(new Facility());
                long handle = table.initializeNative(new HostProvider(), 1);
                try {
                    JNITboMessageTable.getLastMessageId(handle, -1);
                } catch (Exception thrown) {
                    System.out.println("thrown " + thrown.getMessage());
                }
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.EXCEPTION, HostClasses.LISTENER,
                HostClasses.FACILITY_WITHOUT_WARNING, HostClasses.LOGGER);
        assertTrue(output.contains("thrown 20: Index out of bounds"));
        assertTrue(errors.contains("Tabulo/C WARNING: mt_getLastMessageId(): "
                + "Connection message id offset (-1) out of bounds"), () -> "standard error has " + errors);
    }

    private void assertThrowsNothing(String exceptionBody) throws Exception {
        List<String> output = run("""
                System.out.println("handle " + table.initializeNative(null, 1));
                System.out.println("id " + JNITboMessageTable.getLastMessageId(0, 5));
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.exceptionWhoseFactory(exceptionBody),
                HostClasses.FACILITY, HostClasses.LOGGER, HostClasses.LISTENER);
        assertTrue(output.containsAll(List.of("handle 0", "id 0")), () -> "the host printed " + output);
    }

    @Test
    void anExceptionClassWithoutTheFactoryThrowsNothing() throws Exception {
        assertThrowsNothing("");
    }

    @Test
    void aFactoryThatReturnsNullThrowsNothing() throws Exception {
        assertThrowsNothing("static JNITboException createUnderlyingError(int code, String text) { return null; }");
    }

    @Test
    void whatAFactoryThrowsReachesTheHost() throws Exception {
        List<String> output = run("""
                try {
                    System.out.println("handle " + table.initializeNative(null, 1));
                } catch (IllegalStateException thrown) {
                    System.out.println("thrown " + thrown.getMessage());
                }
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.exceptionWhoseFactory(
                "static JNITboException createUnderlyingError(int code, String text) {"
                + " throw new IllegalStateException(\"thrown by a factory on purpose\"); }"),
                HostClasses.FACILITY, HostClasses.LOGGER, HostClasses.LISTENER);
        assertTrue(output.contains("thrown thrown by a factory on purpose"), () -> "the host printed " + output);
    }

    @Test
    void aHostWithoutTheExceptionClassIsToldThatItIsMissing() throws Exception {
        List<String> output = run("""
                try {
                    System.out.println("handle " + table.initializeNative(null, 1));
                } catch (NoClassDefFoundError thrown) {
                    System.out.println("missing " + thrown.getMessage());
                }
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.FACILITY, HostClasses.LOGGER,
                HostClasses.LISTENER);
        assertTrue(output.stream().anyMatch(line -> line.startsWith("missing ") && line.contains("JNITboException")),
                () -> "the host printed " + output);
    }

    @Test
    void anExceptionClassWhoseInitialisationFailsIsToldToTheHost() throws Exception {
        List<String> output = run("""
                try {
                    System.out.println("handle " + table.initializeNative(null, 1));
                } catch (ExceptionInInitializerError thrown) {
                    System.out.println("cause " + thrown.getCause().getMessage());
                }
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.exceptionWhoseFactory(
                "static { if (true) throw new IllegalStateException(\"thrown by a class on purpose\"); }"
                + "static JNITboException createUnderlyingError(int code, String text) { return null; }"),
                HostClasses.FACILITY, HostClasses.LOGGER, HostClasses.LISTENER);
        assertTrue(output.contains("cause thrown by a class on purpose"), () -> "the host printed " + output);
    }

    @Test
    void anExceptionWithSetDetailIsToldWhatTheLibraryKnowsAndWhatTheHostThrew() throws Exception {
        List<String> output = run("""
                class Nameless {
                    public String getTableName() {
                        throw new IllegalStateException("thrown by a provider on purpose");
                    }
                }
                try {
                    table.initializeNative(new Nameless(), 1);
                } catch (Exception thrown) {
                    System.out.println("cause " + thrown.getCause());
                }
                long handle = table.initializeNative(new HostProvider(), 1);
                try {
                    JNITboMessageTable.getLastMessageId(handle, -1);
                } catch (Exception thrown) {
                    System.out.println("detail " + ((JNITboException) thrown).detail);
                }
                """, HostClasses.TABLE, HostClasses.LOADER, HostClasses.exceptionWhoseFactory(
                "public String detail; void setDetail(String text) { detail = text; }"
                + "static JNITboException createUnderlyingError(int code, String text) { return new JNITboException(); }"),
                HostClasses.FACILITY, HostClasses.LOGGER, HostClasses.LISTENER);
        for (String line : List.of("cause java.lang.IllegalStateException: thrown by a provider on purpose",
                "detail Tabulo/C WARNING: mt_getLastMessageId(): Connection message id offset (-1) out of bounds")) {
            assertTrue(output.contains(line), () -> "\"" + line + "\" is missing in " + output);
        }
    }

    /** A facility class that was compiled before the interface had its warning method. */
    private Object outdatedFacility() throws IOException, ReflectiveOperationException {
        Path classes = Files.createDirectory(directory.resolve("outdated"));
        HostClasses.compile(classes, List.of("-cp", System.getProperty("java.class.path")),
                HostClasses.FACILITY_WITHOUT_WARNING, """
                public class Outdated implements com.corvane.util.log.ILogFacility {
                    private com.corvane.util.log.ILogger logger() {
                        return (level, text) -> { };
                    }
                    public com.corvane.util.log.ILogger debug() { return logger(); }
                    public com.corvane.util.log.ILogger info() { return logger(); }
                    public com.corvane.util.log.ILogger error() { return logger(); }
                }
                """);
        try (URLClassLoader loader =
                new URLClassLoader(new URL[] {classes.toUri().toURL()}, getClass().getClassLoader())) {
            return loader.loadClass("Outdated").getConstructor().newInstance();
        }
    }

    @Test
    void aFacilityWhoseWarningMethodIsMissingLeavesThePreviousFacilityAndRaisesNothing() throws Exception {
        long handle = openForWriting();
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        JNITboLibLoader.setLogFacility(outdatedFacility());
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> Natives.lastMessageId(handle, -1));
        assertEquals("Tabulo/C WARNING: mt_getLastMessageId(): Connection message id offset (-1) out of bounds\n",
                facility.warnings());
    }
}
