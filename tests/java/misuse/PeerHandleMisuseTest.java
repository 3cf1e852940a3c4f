package com.corvane.kestrova.engine.tabulo;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.io.IOException;
import java.io.Serializable;
import java.io.StringWriter;
import java.lang.reflect.Constructor;
import java.lang.reflect.Field;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.TreeSet;
import javax.tools.ToolProvider;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;
import org.junit.jupiter.params.provider.ValueSource;

/**
 * A raw handle is an address, and one of a destroyed object can only crash the process. From outside their package, as
 * these tests are, there is no way to a peer's handle and none to a native method with a handle of one's own.
 */
class PeerHandleMisuseTest {
    /** Everything public that takes or gives a long: values and time stamps, no handles. */
    private static final Set<String> LONGS = Set.of("JNITboMessageTable.writeMessage/15",
            "JNITboMessageTable.writeMessage/24", "JNITboMessageTable.getLastGoodMsgSeqNum/2",
            "JNITboMessageTable.getPendingMsgSeqNum/2", "JNITboMessageTableIterator.getTimestamp/0",
            "JNITboMessageTableIterator.getNumericFieldAsLong/1", "JNITboSessionInfoTable.read/1",
            "JNITboSessionInfoTable.write/2");

    @TempDir
    Path directory;

    static List<Class<?>> peers() {
        return List.of(JNITboMessageTable.class, JNITboMessageTableIterator.class, JNITboMessageWatcher.class,
                JNITboSessionInfoTable.class);
    }

    private static boolean isReachable(int modifiers) {
        return Modifier.isPublic(modifiers) || Modifier.isProtected(modifiers);
    }

    private static List<Method> natives(Class<?> owner) {
        return Arrays.stream(owner.getDeclaredMethods()).filter(method -> Modifier.isNative(method.getModifiers()))
                .toList();
    }

    @ParameterizedTest
    @MethodSource("peers")
    void everyNativeMethodOfAPeerIsPrivate(Class<?> peer) {
        assertFalse(natives(peer).isEmpty());
        for (Method method : natives(peer)) {
            assertTrue(Modifier.isPrivate(method.getModifiers()), () -> method + " is not private");
        }
    }

    @Test
    void theNativeMethodsThatAreOpenToAllTakeNoHandle() {
        Set<String> names = new TreeSet<>();
        for (Method method : natives(JNITboLibLoader.class)) {
            names.add(method.getName());
            assertFalse(Arrays.asList(method.getParameterTypes()).contains(long.class), () -> method + " takes a long");
            assertEquals(void.class, method.getReturnType(), () -> method + " gives something");
        }
        assertEquals(Set.of("initLibrary", "uninitLibrary", "setLogFacility", "setDoSyncToDisk"), names);
    }

    @ParameterizedTest
    @MethodSource("peers")
    void thePeerKeepsItsHandleToItself(Class<?> peer) throws NoSuchFieldException {
        Field handle = peer.getDeclaredField("nativeHandle_");
        assertEquals(long.class, handle.getType());
        assertFalse(Modifier.isStatic(handle.getModifiers()));
        for (Field field : peer.getDeclaredFields()) {
            boolean isConstant = Modifier.isStatic(field.getModifiers()) && Modifier.isFinal(field.getModifiers());
            assertTrue(isConstant || Modifier.isPrivate(field.getModifiers()), () -> field + " is not private");
        }
    }

    @ParameterizedTest
    @MethodSource("peers")
    void noPeerIsMadeExtendedCopiedOrStoredFromOutside(Class<?> peer) {
        assertTrue(Modifier.isFinal(peer.getModifiers()), "a subclass could be given what is protected");
        for (Constructor<?> constructor : peer.getDeclaredConstructors()) {
            assertFalse(isReachable(constructor.getModifiers()), () -> constructor + " makes a peer of any handle");
        }
        assertFalse(Cloneable.class.isAssignableFrom(peer), "a copy would outlive the close of its original");
        assertFalse(Serializable.class.isAssignableFrom(peer), "stored bytes could hold any handle");
        assertThrows(NoSuchMethodException.class, () -> peer.getDeclaredMethod("finalize"),
                "a finalizer could free what another thread still uses");
    }

    @Test
    void noPublicMethodTakesOrGivesAHandle() {
        Set<String> longs = new TreeSet<>();
        for (Class<?> peer : peers()) {
            for (Method method : peer.getDeclaredMethods()) {
                List<Class<?>> types = new ArrayList<>(List.of(method.getParameterTypes()));
                types.add(method.getReturnType());
                boolean hasLong = types.contains(long.class) || types.contains(long[].class);
                if (isReachable(method.getModifiers()) && hasLong) {
                    longs.add(peer.getSimpleName() + "." + method.getName() + "/" + method.getParameterCount());
                }
            }
        }
        assertEquals(new TreeSet<>(LONGS), longs, "look at every new one, whether it can be a handle");
    }

    private static Field handleOf(Object peer) throws NoSuchFieldException {
        return peer.getClass().getDeclaredField("nativeHandle_");
    }

    /** Reflection as it is, without being allowed more. */
    @Test
    void reflectionFromAnotherPackageIsRefused() {
        JNITboLibLoader.load(System.getProperty("tabulo.nativeLibrary"));
        TableConfiguration configuration = TableConfiguration.builder("orders", directory).build();
        try (JNITboMessageTable table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
                JNITboMessageTableIterator iterator =
                        table.getMessages(MessageQueryConditions.builder(configuration).build());
                JNITboMessageWatcher watcher = JNITboMessageWatcher.open(table);
                JNITboSessionInfoTable session = JNITboSessionInfoTable.open(
                        TableConfiguration.builder("session", directory).build(), JNITboSessionInfoTable.MODE_WRITE)) {
            for (Object peer : List.of(table, iterator, watcher, session)) {
                assertThrows(IllegalAccessException.class, () -> handleOf(peer).getLong(peer));
                assertThrows(IllegalAccessException.class, () -> handleOf(peer).setLong(peer, 1));
                for (Method method : natives(peer.getClass())) {
                    assertThrows(IllegalAccessException.class,
                            () -> method.invoke(peer, new Object[method.getParameterCount()]));
                }
                for (Constructor<?> constructor : peer.getClass().getDeclaredConstructors()) {
                    assertThrows(IllegalAccessException.class,
                            () -> constructor.newInstance(new Object[constructor.getParameterCount()]));
                }
            }
        }
    }

    @ParameterizedTest
    @ValueSource(strings = {"long handle = table.nativeHandle_", "table.nativeHandle_ = 1",
        "long handle = table.handleForWatcher()", "Object guard = table.guard()", "new JNITboMessageTable(null)",
        "new JNITboMessageTableIterator(table, null, null)",
        "new JNITboSessionInfoTable(null)", "new JNITboMessageWatcher(null, 1L)", "JNITboMessageTable.closeNative(1L)",
        "JNITboMessageTable.uninitializeNative(1L)", "JNITboMessageTable.writeMessage(1L, null, 0, 0)",
        "JNITboMessageTableIterator.next(1L)", "JNITboMessageTableIterator.close(1L)",
        "JNITboMessageWatcher.uninitialize(1L)", "watcher.makeNative()",
        "long handle = JNITboMessageWatcher.initialize(new long[] {1})", "class Open extends JNITboMessageTable { }",
        "HandleGuard guard = null", "watcher.startWatching(1L, 0, null, false)"})
    void codeOfAnotherPackageThatReachesForAHandleDoesNotCompile(String statement) throws IOException {
        assertFalse(compiles(statement), () -> "\"" + statement + "\" compiles");
    }

    @Test
    void codeOfAnotherPackageThatUsesThePeersCompiles() throws IOException {
        assertTrue(compiles("table.writeMessage(null, 0, 0)"), "the test of what does not compile tests nothing");
    }

    private boolean compiles(String statement) throws IOException {
        Path file = directory.resolve("Outside.java");
        Files.writeString(file, """
                import com.corvane.kestrova.engine.tabulo.jni.*;
                class Outside {
                    void reach(JNITboMessageTable table, JNITboMessageWatcher watcher) {
                        %s;
                    }
                }
                """.formatted(statement));
        StringWriter messages = new StringWriter();
        return ToolProvider.getSystemJavaCompiler().getTask(messages, null, null,
                List.of("-proc:none", "-cp", System.getProperty("java.class.path"), "-d", directory.toString()), null,
                ToolProvider.getSystemJavaCompiler().getStandardFileManager(null, null, null)
                        .getJavaFileObjects(file)).call();
    }
}
