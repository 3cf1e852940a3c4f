package com.corvane.kestrova.engine.tabulo.jni;

import java.io.File;
import java.io.IOException;
import java.lang.management.ManagementFactory;
import java.nio.file.Files;
import java.nio.file.NoSuchFileException;
import java.nio.file.Path;
import java.util.Objects;
import java.util.concurrent.ThreadLocalRandom;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import javax.management.JMException;
import javax.management.ObjectName;

/** How much a test that could go on for ever does, how it is repeated, and what this process holds. */
final class TestRun {
    private static final String EFFORT = "TABULO_TEST_EFFORT";
    private static final String SEED = "TABULO_TEST_SEED";
    private static final int MOST_EFFORT = 100_000;
    private static final long LARGEST_SEED = 0xFFFFFFFFL;
    private static final Pattern GLOBAL_REFERENCES = Pattern.compile("JNI global refs: (\\d+)");

    private TestRun() {
    }

    private static long number(String name, long otherwise, long smallest, long largest) {
        String text = System.getenv(name);
        if (text == null || text.isEmpty()) {
            return otherwise;
        }
        long value = Long.parseLong(text);
        if (value < smallest || value > largest) {
            throw new IllegalArgumentException(name + " must be " + smallest + " to " + largest);
        }
        return value;
    }

    /** How often the ordinary amount of work; 1 unless the environment says more. */
    static int effort() {
        return (int) number(EFFORT, 1, 1, MOST_EFFORT);
    }

    /** What a random test starts from: the environment's number or a new one; it is printed. */
    static long seed() {
        long seed = number(SEED, ThreadLocalRandom.current().nextLong(LARGEST_SEED + 1), 0, LARGEST_SEED);
        System.out.println("random numbers from " + seed + "; to repeat this run: " + SEED + "=" + seed);
        return seed;
    }

    /** Prints a line for the table of what was tested. */
    static void figure(String family, String what, long count) {
        System.out.println("figure: " + family + ": " + what + ": " + count);
    }

    static int descriptors() {
        return Objects.requireNonNull(new File("/proc/self/fd").list()).length;
    }

    /** The descriptors of files below a directory; the virtual machine opens others whenever it likes. */
    static int descriptorsBelow(Path directory) throws IOException {
        Path real = directory.toRealPath();
        int count = 0;
        for (String descriptor : Objects.requireNonNull(new File("/proc/self/fd").list())) {
            try {
                count += Files.readSymbolicLink(Path.of("/proc/self/fd", descriptor)).startsWith(real) ? 1 : 0;
            } catch (NoSuchFileException closed) {
                // it was the one that listed the others
            }
        }
        return count;
    }

    /** The number of global references that native code holds, as the virtual machine counts them. */
    static int globalReferences() {
        try {
            String dump = (String) ManagementFactory.getPlatformMBeanServer().invoke(
                    new ObjectName("com.sun.management:type=DiagnosticCommand"), "threadPrint",
                    new Object[] {new String[0]}, new String[] {String[].class.getName()});
            Matcher matcher = GLOBAL_REFERENCES.matcher(dump);
            if (!matcher.find()) {
                throw new AssertionError("the virtual machine does not count its global references");
            }
            return Integer.parseInt(matcher.group(1));
        } catch (JMException failed) {
            throw new AssertionError(failed);
        }
    }

    static int residentKibibytes() throws IOException {
        for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) {
                return Integer.parseInt(line.replaceAll("\\D", ""));
            }
        }
        throw new AssertionError("the process has no VmRSS");
    }
}
