package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.nio.file.Path;

/** The process that is killed: stores messages over and over and acknowledges each one after its write returned. */
public final class CrashWriter {
    /** It ends by itself when it is not killed before. */
    private static final int MOST_MESSAGES = 2_000_000;
    private static final int MESSAGES_BETWEEN_CHECKS = 10_000;

    private CrashWriter() {
    }

    /**
     * Runs until it is killed.
     *
     * @param args library file, data directory, table directory, table name, file of acknowledgements
     * @throws Exception when something fails before
     */
    public static void main(String[] args) throws Exception {
        JNITboLibLoader.load(args[0]);
        JNITboLibLoader.initLibrary();
        MessageStream stream =
                new MessageStream(RecordedSession.allMessages(RecordedSession.readAll(Path.of(args[1]))), 1);
        AckFile acknowledged = new AckFile(Path.of(args[4]));
        ProcessHandle parent = ProcessHandle.current().parent().orElseThrow();
        try (JNITboMessageTable table = new TableDirectory(Path.of(args[2])).open(args[3],
                JNITboMessageTable.MODE_WRITE)) {
            for (int index = 0; index < MOST_MESSAGES; ++index) {
                stream.store(table, index);
                acknowledged.set(index + 1);
                if (index % MESSAGES_BETWEEN_CHECKS == 0 && !parent.isAlive()) {
                    break;
                }
            }
        }
        System.exit(1);
    }
}
