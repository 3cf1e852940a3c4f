package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.SessionNumbers;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/**
 * The directory that holds the demo's tables.
 *
 * @param path the directory
 */
record TableDirectory(Path path) {
    /** What is indexed in a message table of this engine. */
    private static final Layout LAYOUT = Layout.builder().texts("ClOrdID", "Symbol", "Account")
            .numbers("OrderQty", "Price").timeUnit(TimeUnit.MICROSECONDS).build();

    /** Makes the directory, without the tables of an earlier demo. */
    static TableDirectory makeEmpty(Path path) throws IOException {
        Files.createDirectories(path);
        TableDirectory directory = new TableDirectory(path);
        directory.remove("");
        return directory;
    }

    MessageStore openWriter(String name) {
        return MessageStore.openOrCreate(file(name), LAYOUT);
    }

    MessageStore openReader(String name) {
        return MessageStore.openReader(file(name));
    }

    /** Opens the numbers that belong to a message table. */
    SessionNumbers openNumbers(String name, boolean toWrite) {
        Path file = file(name + ".session");
        return toWrite ? SessionNumbers.openWriter(file) : SessionNumbers.openReader(file);
    }

    Path file(String name) {
        return path.resolve(name);
    }

    /** Removes the files whose names begin so: a table, and what its recovery may have saved beside it. */
    void remove(String beginning) throws IOException {
        List<Path> files;
        try (Stream<Path> listed = Files.list(path)) {
            files = listed.filter(Files::isRegularFile)
                    .filter(file -> file.getFileName().toString().startsWith(beginning))
                    .toList();
        }
        for (Path file : files) {
            Files.delete(file);
        }
    }
}
