package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;

/** Limits the size of the files that this process writes, as a full disk does. */
final class FileSizeLimit {
    private FileSizeLimit() {
    }

    /** Runs the body; meanwhile no file can grow beyond the limit, nor be changed behind it. */
    static void during(long bytes, Runnable body) {
        set(bytes + ":");
        try {
            body.run();
        } finally {
            set("unlimited:");
        }
    }

    private static void set(String limit) {
        try {
            Process process = new ProcessBuilder("prlimit", "--pid", String.valueOf(ProcessHandle.current().pid()),
                    "--fsize=" + limit).inheritIO().start();
            if (process.waitFor() != 0) {
                throw new AssertionError("prlimit cannot set the limit " + limit);
            }
        } catch (IOException | InterruptedException failed) {
            throw new AssertionError(failed);
        }
    }
}
