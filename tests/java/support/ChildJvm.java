package com.corvane.kestrova.engine.tabulo.jni;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.UncheckedIOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;
import java.util.regex.Pattern;

/**
 * A virtual machine of its own that runs a main class of the tests under -Xcheck:jni, in a given working directory. All
 * that it prints is printed here too, so that complaints about the library fail the run that started it.
 */
final class ChildJvm implements AutoCloseable {
    private static final int TIMEOUT_SECONDS = 60;
    private static final Pattern NUMBER = Pattern.compile("\\d*");
    private static final String END = "\0end of output";

    private final Process process;
    private final Thread errorReader;
    private final List<String> errors = new ArrayList<>();
    private final BlockingQueue<String> output = new LinkedBlockingQueue<>();

    private ChildJvm(Path directory, boolean echo, List<String> command) throws IOException {
        process = new ProcessBuilder(command).directory(directory.toFile()).start();
        start(process.getInputStream(), echo, output::add);
        errorReader = start(process.getErrorStream(), true, line -> {
            synchronized (errors) {
                errors.add(line);
            }
        });
    }

    /** Starts with plain options. */
    static ChildJvm start(Path directory, Class<?> main, String... arguments) throws IOException {
        return start(directory, "", List.of(), main, arguments);
    }

    /** Starts with plain options; lines that are a mere number are not printed here. */
    static ChildJvm startQuietly(Path directory, Class<?> main, String... arguments) throws IOException {
        return new ChildJvm(directory, false, command("", List.of(), main, arguments));
    }

    /**
     * Starts behind a shell command.
     *
     * @param before a shell command that sets limits, ending in a semicolon, or nothing
     * @param options options of the virtual machine
     */
    static ChildJvm start(Path directory, String before, List<String> options, Class<?> main, String... arguments)
            throws IOException {
        return new ChildJvm(directory, true, command(before, options, main, arguments));
    }

    private static List<String> command(String before, List<String> options, Class<?> main, String... arguments) {
        List<String> command = new ArrayList<>();
        if (!before.isEmpty()) {
            command.addAll(List.of("sh", "-c", before + " exec \"$@\"", "sh"));
        }
        command.addAll(List.of(Path.of(System.getProperty("java.home"), "bin", "java").toString(), "-Xcheck:jni",
                "-Xshare:auto", "-XX:TieredStopAtLevel=1", "-XX:+UseSerialGC", "-XX:-UsePerfData",
                "-XX:-CreateCoredumpOnCrash", "-Dfile.encoding=UTF-8",
                "-Dtabulo.nativeLibrary=" + System.getProperty("tabulo.nativeLibrary")));
        command.addAll(options);
        if (!options.contains("-cp")) {
            command.addAll(List.of("-cp", System.getProperty("java.class.path")));
        }
        command.add(main == null ? "Main" : main.getName());
        command.addAll(List.of(arguments));
        return command;
    }

    private static Thread start(InputStream in, boolean echo, Consumer<String> sink) {
        Thread thread = new Thread(() -> {
            try (BufferedReader reader = new BufferedReader(new InputStreamReader(in, StandardCharsets.UTF_8))) {
                for (String line = reader.readLine(); line != null; line = reader.readLine()) {
                    if (echo || !NUMBER.matcher(line).matches()) {
                        System.out.println(line);
                    }
                    sink.accept(line);
                }
            } catch (IOException closed) {
                // The process is gone.
            }
            sink.accept(END);
        }, "output of a child");
        thread.setDaemon(true);
        thread.start();
        return thread;
    }

    long id() {
        return process.pid();
    }

    boolean isAlive() {
        return process.isAlive();
    }

    /** The next line of standard output; null at its end. */
    String nextLine() throws InterruptedException {
        String line = output.poll(TIMEOUT_SECONDS, TimeUnit.SECONDS);
        if (line == null) {
            throw new AssertionError("the child printed nothing for " + TIMEOUT_SECONDS + " seconds");
        }
        return line.equals(END) ? null : line;
    }

    /** Waits for a line of standard output; lines before it are dropped. */
    void awaitLine(String wanted) throws InterruptedException {
        for (String line = nextLine(); !wanted.equals(line); line = nextLine()) {
            if (line == null) {
                throw new AssertionError("the child ended without printing \"" + wanted + "\"");
            }
        }
    }

    void tell(String line) {
        try {
            process.getOutputStream().write((line + "\n").getBytes(StandardCharsets.UTF_8));
            process.getOutputStream().flush();
        } catch (IOException broken) {
            throw new UncheckedIOException(broken);
        }
    }

    /** SIGKILL. */
    void kill() throws InterruptedException {
        process.destroyForcibly();
        process.waitFor();
    }

    /** Waits for the end; the rest of standard output without the virtual machine's own warnings. */
    List<String> finish() throws InterruptedException {
        List<String> rest = new ArrayList<>();
        for (String line = nextLine(); line != null; line = nextLine()) {
            rest.add(line);
        }
        if (!process.waitFor(TIMEOUT_SECONDS, TimeUnit.SECONDS)) {
            throw new AssertionError("the child does not end");
        }
        errorReader.join();
        if (process.exitValue() != 0) {
            throw new AssertionError("the child ended with status " + process.exitValue());
        }
        return rest;
    }

    /** Standard error; complete after finish(). */
    List<String> errors() {
        synchronized (errors) {
            return errors.stream().filter(line -> !line.equals(END)).toList();
        }
    }

    @Override
    public void close() {
        process.destroyForcibly();
    }
}
