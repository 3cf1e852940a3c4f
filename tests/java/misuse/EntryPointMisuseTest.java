package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.Set;
import java.util.concurrent.FutureTask;
import java.util.function.Consumer;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.MethodSource;

/**
 * Every native method, found by reflection, with every hostile value of each parameter: all combinations where they are
 * few, else all values and all pairs of values, and random combinations. Whatever comes must be no error or exactly the
 * exception that the arguments call for, and the objects must work afterwards as if nothing had happened.
 */
class EntryPointMisuseTest {
    private static final int ENTRY_POINTS = 42;
    private static final long ALL_COMBINATIONS = 3000;
    private static final int RANDOM_COMBINATIONS = 1500;

    @TempDir
    static Path directory;

    private static MisuseTables tables;
    private static Random random;
    private static long calls;
    private static int stored;
    private static int storedRaw;
    private static int descriptors;

    @BeforeAll
    static void open() throws IOException {
        Natives.load();
        random = new Random(TestRun.seed());
        tables = new MisuseTables(directory);
        descriptors = TestRun.descriptorsBelow(directory);
    }

    @AfterAll
    static void freeAndReport() {
        JNITboLibLoader.setDoSyncToDisk(false, 0, 0);
        JNITboLibLoader.uninitLibrary();
        tables.free();
        TestRun.figure("Java misuse", "hostile calls of entry points", calls);
    }

    static List<EntryPoint> entryPoints() {
        return EntryPoint.all();
    }

    @Test
    void thereAreFortyTwoEntryPoints() {
        Set<String> keys = EntryPoint.all().stream().map(EntryPoint::key).collect(Collectors.toSet());
        assertEquals(ENTRY_POINTS, EntryPoint.all().size());
        assertEquals(ENTRY_POINTS, keys.size(), "the keys tell the entry points apart");
    }

    @ParameterizedTest
    @MethodSource("entryPoints")
    void hostileArgumentsLeadToTheErrorThatTheyCallForAndToNothingElse(EntryPoint entryPoint) throws Exception {
        List<List<Argument>> values = new ArrayList<>();
        for (int i = 0; i < entryPoint.parameterTypes().size(); ++i) {
            values.add(tables.valuesFor(entryPoint, i));
        }
        if (!entryPoint.isStatic()) {
            values.add(receivers());  // the last argument stands for the object that is called
        }
        // On a thread of its own, whose stack is short: the library prints the stack of what is thrown into it.
        FutureTask<Void> all = new FutureTask<>(() -> forCombinations(values, call -> check(entryPoint, call)), null);
        Thread thread = new Thread(all);
        thread.start();
        thread.join();
        all.get();
        tables.removeFresh();
        assertEverythingStillWorks();
    }

    private static List<Argument> receivers() {
        return List.of(
                Argument.object("a watcher that stops", NO_ERROR,
                        () -> WatcherNatives.peer((count, times, wires, others) -> 1, (count, ids, wires) -> 1)),
                Argument.object("a watcher whose listener throws", JNI_ERROR,
                        () -> WatcherNatives.peer(new RecordingListener(EntryPointMisuseTest::refuse),
                                (count, ids, wires) -> refuse(count))),
                Argument.object("a watcher without a listener", JNI_ERROR, () -> WatcherNatives.peer(null, null)));
    }

    private static int refuse(int number) {
        throw new OnPurpose("listener " + number);
    }

    /** The values at these places of their lists. */
    private static List<Argument> at(List<List<Argument>> values, int[] places) {
        return IntStream.range(0, places.length).mapToObj(i -> values.get(i).get(places[i])).toList();
    }

    private static void forCombinations(List<List<Argument>> values, Consumer<List<Argument>> call) {
        long combinations = 1;
        for (List<Argument> list : values) {
            combinations = Math.min(combinations * list.size(), Integer.MAX_VALUE);
        }
        if (combinations <= ALL_COMBINATIONS) {
            int[] places = new int[values.size()];
            do {
                call.accept(at(values, places));
            } while (advance(values, places));
            return;
        }
        forPairs(values, call);
        for (long i = 0; i < (long) RANDOM_COMBINATIONS * TestRun.effort(); ++i) {
            int[] places = values.stream().mapToInt(list -> random.nextInt(list.size())).toArray();
            // Few combinations of many arguments would come past the first check: most arguments stay harmless.
            for (int j = 0; j < places.length; ++j) {
                places[j] = random.nextInt(4) == 0 ? places[j] : 0;
            }
            call.accept(at(values, places));
        }
    }

    /** Counts on; false behind the last combination. */
    private static boolean advance(List<List<Argument>> values, int[] places) {
        for (int i = 0; i < places.length; ++i) {
            if (++places[i] < values.get(i).size()) {
                return true;
            }
            places[i] = 0;
        }
        return false;
    }

    /** Every value of each two parameters together, the others harmless; this has every single value too. */
    private static void forPairs(List<List<Argument>> values, Consumer<List<Argument>> call) {
        for (int first = 0; first < values.size(); ++first) {
            for (int second = first + 1; second < values.size(); ++second) {
                int[] places = new int[values.size()];
                for (places[first] = 0; places[first] < values.get(first).size(); ++places[first]) {
                    for (places[second] = 0; places[second] < values.get(second).size(); ++places[second]) {
                        call.accept(at(values, places));
                    }
                }
            }
        }
    }

    private static String describe(EntryPoint entryPoint, List<Argument> arguments) {
        return entryPoint + " with "
                + arguments.stream().map(Argument::name).collect(Collectors.joining(", ", "(", ")"));
    }

    private static void check(EntryPoint entryPoint, List<Argument> arguments) {
        List<Object> values = new ArrayList<>();
        arguments.forEach(argument -> values.add(argument.make().get()));
        Set<Integer> expected = ExpectedCodes.of(entryPoint, arguments, values);
        Object receiver = entryPoint.isStatic() ? null : values.remove(values.size() - 1);
        ++calls;
        int code = NO_ERROR;
        try {
            Object result = entryPoint.call(receiver, values);
            MisuseTables.release(entryPoint, result);
        } catch (JNITboException thrown) {
            code = thrown.getErrorCode();
            assertEquals(Errors.text(code), thrown.getMessage(), () -> describe(entryPoint, arguments));
        }
        if (!expected.contains(code)) {
            throw new AssertionError(
                    describe(entryPoint, arguments) + " ended with " + code + " instead of " + expected);
        }
        if (code == NO_ERROR && entryPoint.method().getName().equals("writeMessage")) {
            boolean isRaw = arguments.size() == 4;
            storedRaw += isRaw ? 1 : 0;
            stored += isRaw ? 0 : 1;
        }
    }

    private static int messages(long table) {
        RawConditions all = new RawConditions();
        long iterator = QueryNatives.open(table, all);
        int count = 0;
        while (QueryNatives.next(iterator)) {
            ++count;
        }
        QueryNatives.close(iterator);
        return count;
    }

    /** The messages that calls stored without an error are there, no others, and nothing is left open. */
    private static void assertEverythingStillWorks() throws IOException {
        assertEquals(stored, messages(tables.target), "messages of the overloads with fields");
        assertEquals(storedRaw, messages(tables.raw), "messages of the overload with frames");
        if (stored + storedRaw > 0) {
            Natives.drop(tables.target);
            Natives.drop(tables.raw);
            stored = 0;
            storedRaw = 0;
        }
        long reader = Natives.open(tables.fielded("held"), Natives.READ);
        assertEquals(MisuseTables.HELD_MESSAGES, messages(reader));
        Natives.free(reader);
        assertEquals(descriptors, TestRun.descriptorsBelow(directory), "descriptors of tables");
    }
}
