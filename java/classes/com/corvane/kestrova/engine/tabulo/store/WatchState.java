package com.corvane.kestrova.engine.tabulo.store;

import java.io.IOException;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.TreeMap;

/**
 * How far a {@link Watch} has come in each of its tables. Kept in a file, it lets a watch of a later process go on
 * behind the last message that was delivered. Objects are immutable.
 *
 * @param lastIds by the table's name, the uniform message id of the last message that was delivered from it
 */
public record WatchState(Map<String, Integer> lastIds) {
    /**
     * Copies the map.
     *
     * @param lastIds the last id by the table's name
     */
    public WatchState {
        lastIds = Map.copyOf(lastIds);
    }

    /**
     * The state before anything was delivered.
     *
     * @return a state without tables
     */
    public static WatchState none() {
        return new WatchState(Map.of());
    }

    /**
     * Reads what {@link #save(Path)} has written.
     *
     * @param file the file
     * @return the state, {@link #none()} when there is no such file
     * @throws UncheckedIOException when it cannot be read, or holds something else
     */
    public static WatchState load(Path file) {
        if (Files.notExists(file)) {
            return none();
        }
        try {
            Map<String, Integer> ids = new LinkedHashMap<>();
            for (String line : Files.readAllLines(file)) {
                int space = line.indexOf(' ');
                if (space < 1) {
                    throw new IOException(file + " is no saved state of a watch: \"" + line + "\"");
                }
                ids.put(line.substring(space + 1), Integer.valueOf(line.substring(0, space)));
            }
            return new WatchState(ids);
        } catch (NumberFormatException other) {
            throw new UncheckedIOException(new IOException(file + " is no saved state of a watch", other));
        } catch (IOException failed) {
            throw new UncheckedIOException(failed);
        }
    }

    /**
     * Writes the state to a file, which is replaced as a whole: whoever reads it gets this state or the one before.
     *
     * @param file the file, in a directory that exists; beside it a file of this name and ".new" is made and renamed
     * @throws UncheckedIOException when it cannot be written
     */
    public void save(Path file) {
        StringBuilder lines = new StringBuilder();
        new TreeMap<>(lastIds).forEach((table, id) -> lines.append(id).append(' ').append(table).append('\n'));
        try {
            Path written = Files.writeString(file.resolveSibling(file.getFileName() + ".new"), lines);
            Files.move(written, file, StandardCopyOption.ATOMIC_MOVE, StandardCopyOption.REPLACE_EXISTING);
        } catch (IOException failed) {
            throw new UncheckedIOException(failed);
        }
    }
}
