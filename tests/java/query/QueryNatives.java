package com.corvane.kestrova.engine.tabulo.jni;

import java.lang.invoke.MethodHandle;

/** The native methods of queries and iterators, past the peers that guard them. */
final class QueryNatives {
    private static final Class<?> ITERATOR = JNITboMessageTableIterator.class;
    private static final MethodHandle OPEN =
            Natives.find(JNITboMessageTable.class, "getMessages", long.class, Object.class);
    private static final MethodHandle NEXT = Natives.find(ITERATOR, "next", long.class);
    private static final MethodHandle CLOSE = Natives.find(ITERATOR, "close", long.class);
    private static final MethodHandle STRING = Natives.find(ITERATOR, "getStringField", long.class, int.class);
    private static final MethodHandle LONG = Natives.find(ITERATOR, "getNumericFieldAsLong", long.class, int.class);
    private static final MethodHandle DOUBLE = Natives.find(ITERATOR, "getNumericFieldAsDouble", long.class, int.class);

    private QueryNatives() {
    }

    static long open(long table, Object conditions) {
        return Natives.call(() -> (long) OPEN.invokeExact(table, conditions));
    }

    static boolean next(long iterator) {
        return Natives.call(() -> (boolean) NEXT.invokeExact(iterator));
    }

    static void close(long iterator) {
        Natives.call(() -> {
            CLOSE.invokeExact(iterator);
            return null;
        });
    }

    static String string(long iterator, int index) {
        return Natives.call(() -> (String) STRING.invokeExact(iterator, index));
    }

    static long asLong(long iterator, int index) {
        return Natives.call(() -> (long) LONG.invokeExact(iterator, index));
    }

    static double asDouble(long iterator, int index) {
        return Natives.call(() -> (double) DOUBLE.invokeExact(iterator, index));
    }

    /** A getter without an index, by its name. */
    @SuppressWarnings("unchecked")
    static <T> T get(long iterator, String name) {
        MethodHandle getter = Natives.find(ITERATOR, name, long.class);
        return Natives.call(() -> (T) getter.invoke(iterator));
    }

    static int uniformId(long iterator) {
        return QueryNatives.<Integer>get(iterator, "getUniformMessageId");
    }
}
