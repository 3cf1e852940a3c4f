import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import java.io.IOException;
import java.io.OutputStream;
import java.io.PrintStream;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.stream.Stream;

/**
 * Runs every scenario where something runs short, at every place where it can: the result is that of the undisturbed run
 * or an exception, and the tables hold what they held before or what an undisturbed run leaves.
 */
public final class ShortageRun {
    private static final int MOST_PROBLEMS = 10;
    private static final int[] HEAP_LEVELS = {0, 32, 256, 864};  // bytes that are left
    private static final int[] LARGE_HEAP_LEVELS = {0, 5_000_000, 15_000_000, 22_000_000};
    private static final int LARGEST_BLOCK = 1 << 20;
    private static final int SMALLEST_BLOCK = 64;
    private static final int ROOM = 4 << 20;  // for what is done before and behind a use
    private static final long SMALL_STACK = 256 * 1024;
    private static final int DEPTHS = 60;  // of each scenario, around the one where it begins to fail

    private final Path root;
    private final StringBuilder problems = new StringBuilder();
    private int problemCount;
    private int runs;
    private int stages;
    private int points;

    private ShortageRun(Path root) {
        this.root = root;
    }

    /** Lets the n-th allocation of native code on this thread fail, alone or with all behind it. */
    private static native void failAllocation(long n, boolean goesOn);

    /** Ends that; true when an allocation has failed. */
    private static native boolean endFailures();

    /** What came of a scenario. */
    private record Outcome(String result, Throwable thrown, String content) {
        /** The exception's code counts, or the class of one that is not ours. */
        static String nameOf(Throwable thrown) {
            return thrown instanceof JNITboException ours ? "error " + ours.getErrorCode() : thrown.getClass().getName();
        }

        String text() {
            return thrown == null ? result : nameOf(thrown);
        }
    }

    /** How a run is disturbed. */
    private interface Disturbance {
        /** Runs the scenario's operation; gives its result or throws what it throws. */
        String run(ShortageScenarios.Scenario scenario, ShortageStage stage) throws Throwable;
    }

    private Outcome run(ShortageScenarios.Scenario scenario, Disturbance disturbance) throws IOException {
        ++runs;
        Path directory = root.resolve("stage" + ++stages);
        String result = null;
        Throwable thrown = null;
        String content;
        ShortageStage stage = new ShortageStage(directory);
        try (stage) {
            stage.copyTables(root.resolve("templates"));
            scenario.prepare().accept(stage);
            try {
                result = disturbance.run(scenario, stage);
            } catch (Throwable failed) {
                thrown = failed;
            }
        } finally {
            JNITboLibLoader.uninitLibrary();
        }
        content = stage.content();
        try (Stream<Path> files = Files.list(directory)) {
            files.forEach(file -> file.toFile().delete());
        }
        Files.delete(directory);
        return new Outcome(result, thrown, content);
    }

    private void expect(boolean isRight, String scenario, String where, String what) {
        if (!isRight && ++problemCount <= MOST_PROBLEMS) {
            problems.append(scenario).append(", ").append(where).append(": ").append(what).append('\n');
        }
    }

    private void judge(String scenario, String where, Outcome undisturbed, String before, Outcome disturbed) {
        boolean isDone = disturbed.text().equals(undisturbed.text());
        if (disturbed.thrown() == null) {
            expect(isDone, scenario, where, "it returns \"" + disturbed.result() + "\" instead of \""
                    + undisturbed.text() + "\"");
            expect(disturbed.content().equals(undisturbed.content()), scenario, where,
                    "it returns and the tables hold " + disturbed.content());
        } else {
            expect(disturbed.content().equals(before) || disturbed.content().equals(undisturbed.content()), scenario,
                    where, "it throws " + disturbed.thrown() + " and the tables hold " + disturbed.content());
        }
    }

    private static String plainly(ShortageScenarios.Scenario scenario, ShortageStage stage) {
        return scenario.operate().apply(stage);
    }

    private void makeTemplates() throws IOException {
        new ShortageStage(root.resolve("templates")).makeTables();
    }

    /** What the tables hold when only the preparation of a scenario was run. */
    private String preparedContent(ShortageScenarios.Scenario scenario) throws IOException {
        return run(scenario, (one, stage) -> "").content();
    }

    private void runWithoutNativeMemory() throws IOException {
        for (ShortageScenarios.Scenario scenario : ShortageScenarios.all()) {
            Outcome undisturbed = run(scenario, ShortageRun::plainly);
            String before = preparedContent(scenario);
            for (boolean goesOn : new boolean[] {false, true}) {
                boolean[] happened = {true};
                for (int n = 1; happened[0] && problemCount < MOST_PROBLEMS; ++n) {
                    long number = n;
                    Outcome disturbed = run(scenario, (one, stage) -> {
                        failAllocation(number, goesOn);
                        try {
                            return one.operate().apply(stage);
                        } finally {
                            happened[0] = endFailures();
                        }
                    });
                    String where = "allocation " + n + (goesOn ? " and all behind it fail" : " fails");
                    judge(scenario.name(), where, undisturbed, before, disturbed);
                    points += happened[0] ? 1 : 0;
                }
            }
        }
    }

    private static void fillHeap(List<byte[]> held, int largest, int smallest) {
        for (int size = largest; size >= smallest; size /= 4) {
            try {
                for (;;) {
                    held.add(new byte[size]);
                }
            } catch (OutOfMemoryError full) {
                // The next size may fit.
            }
        }
    }

    private void runWithoutHeap() throws IOException {
        List<byte[]> ballast = new ArrayList<>();
        byte[] room = new byte[ROOM];
        fillHeap(ballast, LARGEST_BLOCK, LARGEST_BLOCK);
        room = null;
        runWithoutHeap(ShortageScenarios.all(), HEAP_LEVELS);
        expect(room == null && !ballast.isEmpty(), "the heap", "before all", "it was never filled");
    }

    private void runWithoutHeapForLargeTexts() throws IOException {
        for (ShortageScenarios.Scenario scenario : ShortageScenarios.large()) {
            Outcome undisturbed = run(scenario, ShortageRun::plainly);
            expect(undisturbed.thrown() == null, scenario.name(), "undisturbed", "it throws " + undisturbed.thrown());
        }
        runWithoutHeap(ShortageScenarios.large(), LARGE_HEAP_LEVELS);
    }

    private void runWithoutHeap(List<ShortageScenarios.Scenario> scenarios, int[] levels) throws IOException {
        for (ShortageScenarios.Scenario scenario : scenarios) {
            Outcome undisturbed = run(scenario, ShortageRun::plainly);
            String before = preparedContent(scenario);
            for (int i = 0; i < levels.length && problemCount < MOST_PROBLEMS; ++i) {
                int rest = levels[i];
                Outcome disturbed = run(scenario, (one, stage) -> {
                    List<byte[]> held = new ArrayList<>(100_000);
                    held.add(new byte[rest]);
                    fillHeap(held, LARGEST_BLOCK, SMALLEST_BLOCK);
                    held.set(0, null);
                    try {
                        return one.operate().apply(stage);
                    } finally {
                        held.clear();
                    }
                });
                judge(scenario.name(), "with " + rest + " bytes of Java's memory", undisturbed, before, disturbed);
                points += !disturbed.text().equals(undisturbed.text()) ? 1 : 0;
            }
        }
    }

    /** Goes down some frames and runs the operation there. */
    private static String descend(int depth, ShortageScenarios.Scenario scenario, ShortageStage stage) {
        return depth == 0 ? scenario.operate().apply(stage) : descend(depth - 1, scenario, stage);
    }

    private static int deepest(int depth) {
        try {
            return deepest(depth + 1);
        } catch (StackOverflowError end) {
            return depth;
        }
    }

    /** About the depth from which on the scenario cannot do what it does elsewhere; compilation moves it. */
    private int firstFailingDepth(ShortageScenarios.Scenario scenario, Outcome undisturbed, int deepest)
            throws IOException {
        int works = 0;
        int fails = deepest;
        while (fails - works > 1) {
            int depth = (works + fails) / 2;
            if (run(scenario, (one, stage) -> descend(depth, one, stage)).text().equals(undisturbed.text())) {
                works = depth;
            } else {
                fails = depth;
            }
        }
        return fails;
    }

    private void runWithoutStack() throws IOException {
        for (ShortageScenarios.Scenario scenario : ShortageScenarios.all()) {
            Outcome undisturbed = run(scenario, ShortageRun::plainly);
            String before = preparedContent(scenario);
            int[] end = new int[1];
            Outcome measured = run(scenario, (one, stage) -> {
                end[0] = deepest(0);
                return "";
            });
            expect("".equals(measured.result()), scenario.name(), "at any depth", "the stack cannot be measured");
            int first = Math.max(0, firstFailingDepth(scenario, undisturbed, end[0]) - DEPTHS / 2);
            for (int i = 0; i < DEPTHS && problemCount < MOST_PROBLEMS; ++i) {
                int depth = first + i;
                Outcome disturbed = run(scenario, (one, stage) -> descend(depth, one, stage));
                judge(scenario.name(), "at the depth " + depth + " of " + end[0], undisturbed, before, disturbed);
                points += !disturbed.text().equals(undisturbed.text()) ? 1 : 0;
            }
        }
    }

    private void runWithSmallStack() throws IOException {
        Throwable[] failed = new Throwable[1];
        Thread thread = new Thread(null, () -> {
            try {
                runWithoutStack();
            } catch (Throwable thrown) {
                failed[0] = thrown;
            }
        }, "small stack", SMALL_STACK);
        thread.start();
        try {
            thread.join();
        } catch (InterruptedException interrupted) {
            throw new IllegalStateException(interrupted);
        }
        expect(failed[0] == null, "the run", "", String.valueOf(failed[0]));
    }

    /** Runs all scenarios with something short; gives "<points> <runs>" and a line for each problem. */
    public static String run(String directory, String what) throws IOException {
        PrintStream errors = System.err;
        // Every exception behind an error is printed; these are too many.
        System.setErr(new PrintStream(OutputStream.nullOutputStream()));
        try {
            ShortageRun run = new ShortageRun(Path.of(directory));
            run.makeTemplates();
            switch (what) {
                case "native memory" -> run.runWithoutNativeMemory();
                case "heap" -> run.runWithoutHeap();
                case "heap for large texts" -> run.runWithoutHeapForLargeTexts();
                default -> run.runWithSmallStack();
            }
            return run.points + " " + run.runs + "\n" + run.problems;
        } catch (UncheckedIOException failed) {
            throw failed.getCause();
        } finally {
            System.setErr(errors);
        }
    }
}
