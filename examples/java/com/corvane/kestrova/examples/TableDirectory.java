package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.stream.Stream;

/**
 * The directory that holds the demo's tables.
 *
 * @param path the directory
 */
record TableDirectory(Path path) {
    /** Makes the directory, without the tables of an earlier demo. */
    static TableDirectory makeEmpty(Path path) throws IOException {
        Files.createDirectories(path);
        TableDirectory directory = new TableDirectory(path);
        directory.remove("");
        return directory;
    }

    JNITboMessageTable open(String name, int mode) {
        return JNITboMessageTable.open(configuration(name), mode);
    }

    /** What is indexed in a message table of this engine. */
    TableConfiguration configuration(String name) {
        return TableConfiguration.builder(name, path)
                .stringFields("ClOrdID", "Symbol", "Account")
                .numericFields("OrderQty", "Price")
                .build();
    }

    /** Opens the session info table that belongs to a message table. */
    JNITboSessionInfoTable openSessionInfo(String name, int mode, int... tags) {
        TableConfiguration configuration =
                TableConfiguration.builder(name + ".session", path).sessionInfoTags(tags).build();
        return JNITboSessionInfoTable.open(configuration, mode);
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
