package com.corvane.kestrova.examples;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;

/** The last uniform id that was seen, kept in a small text file that is replaced as a whole. */
final class LiveMonitorState {
    private final Path file;
    private Integer id;

    private LiveMonitorState(Path file, Integer id) {
        this.file = file;
        this.id = id;
    }

    static LiveMonitorState read(Path file) throws IOException {
        return new LiveMonitorState(file, Files.exists(file) ? Integer.valueOf(Files.readString(file).strip()) : null);
    }

    boolean isKnown() {
        return id != null;
    }

    int get() {
        return id;
    }

    void store(int newId) {
        id = newId;
        try {
            Path written = Files.writeString(file.resolveSibling(file.getFileName() + ".new"), newId + "\n");
            Files.move(written, file, StandardCopyOption.ATOMIC_MOVE, StandardCopyOption.REPLACE_EXISTING);
        } catch (IOException failed) {
            throw new UncheckedIOException(failed);
        }
    }

    @Override
    public String toString() {
        return isKnown() ? id.toString() : "not known";
    }
}
