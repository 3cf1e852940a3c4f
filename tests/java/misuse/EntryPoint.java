package com.corvane.kestrova.engine.tabulo.jni;

import java.lang.invoke.MethodHandle;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.List;
import java.util.stream.Collectors;

/** One native method of the Java side, found by reflection and called as it is, past every peer. */
final class EntryPoint {
    static final List<Class<?>> CLASSES = List.of(JNITboLibLoader.class, JNITboSessionInfoTable.class,
            JNITboMessageTable.class, JNITboMessageTableIterator.class, JNITboMessageWatcher.class);

    private final Method method;
    private final MethodHandle handle;

    private EntryPoint(Method method) {
        this.method = method;
        handle = Natives.find(method.getDeclaringClass(), method.getName(), method.getParameterTypes());
    }

    static List<EntryPoint> all() {
        return CLASSES.stream().flatMap(owner -> Arrays.stream(owner.getDeclaredMethods()))
                .filter(method -> Modifier.isNative(method.getModifiers())).map(EntryPoint::new)
                .sorted(Comparator.comparing(EntryPoint::toString)).toList();
    }

    /** "JNITboMessageTable.writeMessage/25": the class, the method and the number of its arguments. */
    String key() {
        return method.getDeclaringClass().getSimpleName() + "." + method.getName() + "/" + method.getParameterCount();
    }

    Method method() {
        return method;
    }

    boolean isStatic() {
        return Modifier.isStatic(method.getModifiers());
    }

    List<Class<?>> parameterTypes() {
        return List.of(method.getParameterTypes());
    }

    /** Calls; a method of an instance is called on the receiver. */
    Object call(Object receiver, List<Object> arguments) {
        List<Object> all = new ArrayList<>();
        if (!isStatic()) {
            all.add(receiver);
        }
        all.addAll(arguments);
        return Natives.call(() -> handle.invokeWithArguments(all));
    }

    @Override
    public String toString() {
        return method.getDeclaringClass().getSimpleName() + "." + method.getName()
                + Arrays.stream(method.getParameterTypes()).map(Class::getSimpleName)
                        .collect(Collectors.joining(", ", "(", ")"));
    }
}
