package com.corvane.kestrova.engine.tabulo.jni;

import java.nio.file.Path;
import java.util.stream.IntStream;

/**
 * Writes a session info table: write n gives each default tag the value valueOf(n, tag). Takes the table's directory,
 * the file of the turns and the number of writes, for each of which it waits for its turn.
 */
final class SessionWriterProgram {
    private SessionWriterProgram() {
    }

    public static void main(String[] arguments) throws Exception {
        long table = SessionNatives.open(new Provider(Path.of(arguments[0])).named("session"), Natives.WRITE);
        Turns turns = new Turns(Path.of(arguments[1]));
        long count = Long.parseLong(arguments[2]);
        int[] tags = OnSessionTables.DEFAULT_TAGS;
        for (long n = 1; n <= count; ++n) {
            turns.awaitAsked(n);
            SessionNatives.write(table, tags.length, tags, valuesOf(n));
            turns.answer(n);
        }
        SessionNatives.free(table);
    }

    /** The values of write n; all bytes of a value change from write to write. */
    static long[] valuesOf(long n) {
        return IntStream.of(OnSessionTables.DEFAULT_TAGS).mapToLong(tag -> valueOf(n, tag)).toArray();
    }

    private static long valueOf(long n, int tag) {
        long x = n * 0x9e3779b97f4a7c15L + tag;
        return (x ^ (x >>> 31)) * 0xbf58476d1ce4e5b9L;
    }
}
