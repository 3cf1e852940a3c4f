package com.corvane.kestrova.engine.tabulo.jni;

import java.util.ArrayList;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.IntStream;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;

/** Tests of watchers; those that a test leaves behind are freed before their tables. */
abstract class OnWatchedTables extends OnTables {
    static final int[] FROM_THE_FIRST = {1, 1, 1};

    RecordingFacility facility;
    private final List<Long> watchers = new ArrayList<>();

    @BeforeEach
    void recordWarnings() {
        facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
    }

    @AfterEach
    void freeWatchers() {
        watchers.forEach(WatcherNatives::uninitialize);
        watchers.clear();
    }

    long openForWriting(String name) {
        return open(provider().named(name), Natives.WRITE);
    }

    /** A reader of a table with numbered messages of these ids. */
    long filled(String name, int... ids) {
        long writer = openForWriting(name);
        for (int id : ids) {
            writeNumbered(writer, id, id);
        }
        close(writer);
        return open(provider().named(name), Natives.READ);
    }

    long watcher(long... tableHandles) {
        long handle = WatcherNatives.initialize(tableHandles);
        watchers.add(handle);
        return handle;
    }

    /** The ids that a compact watch of these tables gives. */
    CompactRecorder watchAll(long... tableHandles) {
        CompactRecorder recorder = new CompactRecorder();
        int[] from = IntStream.generate(() -> 1).limit(tableHandles.length).toArray();
        WatcherNatives.watchCompact(watcher(tableHandles), from.length, from, recorder);
        return recorder;
    }

    static String startLine(String ids) {
        return "Tabulo/C: Watcher started from uniformIds = [ " + ids + "]\n";
    }

    static String stopLine(int lastId) {
        return "Tabulo/C: Watcher asked to stop. Last sent uniformId = " + lastId + "\n";
    }

    static String errorLine(int code, int lastId) {
        return "Tabulo/C: Watcher stopped due to error " + code + ". Last sent uniformId = " + lastId + "\n";
    }

    static List<Integer> numbers(int first, int last) {
        return IntStream.rangeClosed(first, last).boxed().collect(Collectors.toList());
    }
}
