package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;

/** A file in memory, kept by another process, that can be forbidden to shrink. */
final class SealedFile implements AutoCloseable {
    private static final String PROGRAM = """
            import fcntl, os, sys
            file = os.memfd_create("table", os.MFD_ALLOW_SEALING)
            print("/proc/%d/fd/%d" % (os.getpid(), file), flush=True)
            sys.stdin.readline()
            fcntl.fcntl(file, fcntl.F_ADD_SEALS, fcntl.F_SEAL_SHRINK)
            print("sealed", flush=True)
            sys.stdin.readline()
            """;

    private final Process process = new ProcessBuilder("python3", "-c", PROGRAM)
            .redirectError(ProcessBuilder.Redirect.INHERIT).start();

    SealedFile() throws IOException {
    }

    /** Where the file can be opened; to be asked once. */
    Path path() throws IOException {
        return Path.of(process.inputReader(StandardCharsets.UTF_8).readLine());
    }

    /** From now on the file cannot be cut. */
    void forbidToShrink() throws IOException {
        process.outputWriter().write("seal\n");
        process.outputWriter().flush();
        String answer = process.inputReader(StandardCharsets.UTF_8).readLine();
        if (!"sealed".equals(answer)) {
            throw new AssertionError("the file is not sealed: " + answer);
        }
    }

    @Override
    public void close() {
        process.destroy();
    }
}
