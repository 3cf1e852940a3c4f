package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.ITERATOR_CLOSED_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.TABLE_CLOSED_ERROR;
import static org.junit.jupiter.api.Assertions.assertDoesNotThrow;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.lang.invoke.MethodHandle;
import java.lang.reflect.Constructor;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;

/** Handle 0, the handle of nothing, at every entry point that takes one. */
class ZeroHandleTest {
    private static final Set<String> SILENT = Set.of("uninitializeNative", "uninitialize");

    private static Stream<Method> natives(Class<?> peer) {
        return Arrays.stream(peer.getDeclaredMethods()).filter(method -> Modifier.isNative(method.getModifiers()))
                .filter(method -> method.getParameterCount() > 0 && method.getParameterTypes()[0] == long.class);
    }

    static List<Method> tableMethods() {
        return Stream.concat(natives(JNITboMessageTable.class), natives(JNITboSessionInfoTable.class))
                .filter(method -> !SILENT.contains(method.getName())).toList();
    }

    static List<Method> iteratorMethods() {
        return natives(JNITboMessageTableIterator.class).toList();
    }

    /** Calls with 0 for numbers, false and null. */
    private static void callWithZeros(Method method) {
        MethodHandle handle = Natives.find(method.getDeclaringClass(), method.getName(), method.getParameterTypes());
        Object[] arguments = Arrays.stream(method.getParameterTypes()).map(ZeroHandleTest::zero).toArray();
        Natives.call(() -> handle.invokeWithArguments(arguments));
    }

    private static Object zero(Class<?> type) {
        if (!type.isPrimitive()) {
            return null;
        }
        if (type == boolean.class) {
            return false;
        }
        if (type == char.class) {
            return '\0';
        }
        return type == long.class ? (Object) 0L : (Object) 0;
    }

    @ParameterizedTest
    @MethodSource("tableMethods")
    void aTableMethodSaysThatTheTableIsClosed(Method method) {
        assertFails(TABLE_CLOSED_ERROR, () -> callWithZeros(method));
    }

    @ParameterizedTest
    @MethodSource("iteratorMethods")
    void anIteratorMethodSaysThatTheIteratorIsClosed(Method method) {
        assertFails(ITERATOR_CLOSED_ERROR, () -> callWithZeros(method));
    }

    @Test
    void everyEntryPointWithAHandleIsCoveredHere() {
        Set<String> names = new HashSet<>();
        tableMethods().forEach(method -> names.add(method.getName()));
        assertEquals(Set.of("closeNative", "dropNative", "writeMessage", "readMessages", "getMessages",
                "getLastMessageId", "getLastGoodMsgSeqNum", "getPendingMsgSeqNum", "getLastUniformMessageId",
                "writeFieldsNative", "readFieldsNative"), names);
        assertEquals(14, tableMethods().size(), "three overloads of writeMessage, dropNative of both tables");
        assertEquals(17, iteratorMethods().size());
    }

    @Test
    void freeingNothingIsSilent() {
        assertDoesNotThrow(() -> Natives.free(0));
        MethodHandle session = Natives.find(JNITboSessionInfoTable.class, "uninitializeNative", long.class);
        assertDoesNotThrow(() -> session.invoke(0L));
        MethodHandle watcher = Natives.find(JNITboMessageWatcher.class, "uninitialize", long.class);
        assertDoesNotThrow(() -> watcher.invoke(0L));
    }

    @Test
    void watchingWithoutAWatcherIsANullPointer() throws ReflectiveOperationException {
        Constructor<JNITboMessageWatcher> constructor =
                JNITboMessageWatcher.class.getDeclaredConstructor(JNITboMessageTable[].class, long.class);
        constructor.setAccessible(true);
        JNITboMessageWatcher watcher = constructor.newInstance(new JNITboMessageTable[0], 0L);
        MethodHandle start = Natives.find(JNITboMessageWatcher.class, "startWatching", long.class, int.class,
                int[].class, boolean.class);
        assertFails(NULL_POINTER_ERROR, () -> start.invoke(watcher, 0L, 0, new int[0], false));
        assertFails(NULL_POINTER_ERROR, () -> start.invoke(watcher, 0L, 1, new int[1], true));
    }

    @Test
    void theNumbersOfAFailedWriteDoNotMatterForAClosedTable() {
        Message message = Message.of(m -> {
            m.doubles = new double[17];
            m.strings = new String[13];
        });
        assertFails(TABLE_CLOSED_ERROR, () -> Natives.writeTexts(0, message));
        assertFails(TABLE_CLOSED_ERROR, () -> Natives.writeBytes(0, message));
        assertFails(TABLE_CLOSED_ERROR, () -> Natives.writeRaw(0, new byte[1], -1, -1));
        assertFails(TABLE_CLOSED_ERROR, () -> Natives.readMessages(0, new int[1], 1, new RecordingListener()));
    }
}
