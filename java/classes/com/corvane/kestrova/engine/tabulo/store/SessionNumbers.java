package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.nio.file.Path;
import java.util.OptionalInt;

/**
 * The sequence numbers of the last messages of a session, sent and received, in a session info table beside its
 * {@link MessageStore}. An engine stores a message first and its number behind it: after a crash
 * {@link MessageStore#reconcile(SessionNumbers)} tells whether the second of the two was done.
 *
 * <p>Any number of threads may use an object. A number that was kept survives the end of the process, and under
 * {@link SyncPolicy#always()} the loss of power.
 */
public final class SessionNumbers implements AutoCloseable {
    private static final int LAST_SENT = 1;
    private static final int LAST_RECEIVED = 2;

    private final Path file;
    private final JNITboSessionInfoTable table;
    /** Without this a first write would make a writer of a table that is open for reading. */
    private final boolean isReader;

    private SessionNumbers(Path file, JNITboSessionInfoTable table, boolean isReader) {
        this.file = file;
        this.table = table;
        this.isReader = isReader;
    }

    /**
     * Opens a session's numbers for reading and writing, and makes their table when there is none; they are 0 then.
     *
     * @param table the table's file, in a directory that exists
     * @return the numbers, to be closed by the caller
     * @throws TabuloLockedException when the table is open for writing elsewhere
     * @throws TabuloDamagedException when the file is no table, or damaged
     * @throws TabuloException {@code FILE_OPEN_ERROR} when it may not be opened; {@code CONFIG_MISMATCH_ERROR} when it
     *         does not have the tags 1 and 2, which hold the numbers; {@code TABLE_TYPE_ERROR} for a message table
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static SessionNumbers openWriter(Path table) {
        return open(table, JNITboSessionInfoTable.MODE_WRITE);
    }

    /**
     * Opens a session's numbers for reading, beside their writer.
     *
     * @param table the table's file
     * @return the numbers, to be closed by the caller
     * @throws TabuloException as {@link #openWriter(Path)} does, and {@code FILE_OPEN_ERROR} when there is no such file
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static SessionNumbers openReader(Path table) {
        return open(table, JNITboSessionInfoTable.MODE_READ);
    }

    /**
     * Keeps the MsgSeqNum of the message that was sent or received last.
     *
     * @param direction which way the message went
     * @param seqNum its number, or 0 for a session that begins anew
     * @throws IllegalArgumentException when the number is negative
     * @throws TabuloException {@code READ_ONLY_ERROR} when the numbers are open for reading; {@code FILE_SEEK_ERROR},
     *         {@code FILE_WRITE_ERROR}, {@code FILE_FLUSH_ERROR} when the file did not take it: close the numbers and
     *         open them again; {@code TABLE_CLOSED_ERROR} when they are closed
     */
    public void keep(Direction direction, int seqNum) {
        if (seqNum < 0) {
            throw new IllegalArgumentException("a sequence number is not negative, as " + seqNum + " is");
        }
        if (isReader) {
            throw TabuloException.of(JNITboErrorCodes.READ_ONLY_ERROR,
                    "Unable to write to a table opened in read-only mode", file, null);
        }
        try {
            table.write(tag(direction), seqNum);
        } catch (JNITboException failed) {
            throw TabuloException.of(failed, file);
        }
    }

    /**
     * The number that was kept last.
     *
     * @param direction which way
     * @return the number; empty when none was kept, or 0
     * @throws TabuloException {@code FILE_READ_ERROR}; {@code TABLE_CLOSED_ERROR} when the numbers are closed
     */
    public OptionalInt last(Direction direction) {
        try {
            long kept = table.read(tag(direction))[0];
            // What others have written there may be larger than a number of this class.
            int number = (int) Math.max(0, Math.min(Integer.MAX_VALUE, kept));
            return number == 0 ? OptionalInt.empty() : OptionalInt.of(number);
        } catch (JNITboException failed) {
            throw TabuloException.of(failed, file);
        }
    }

    /**
     * The table's file.
     *
     * @return the path with which the numbers were opened
     */
    public Path path() {
        return file;
    }

    /** Closes the file; a second time it does nothing. */
    @Override
    public void close() {
        table.close();
    }

    /**
     * Says whose numbers these are.
     *
     * @return the table's path
     */
    @Override
    public String toString() {
        return "session numbers " + file;
    }

    private static SessionNumbers open(Path file, int mode) {
        Path directory = file.getParent();
        TableConfiguration configuration = TableConfiguration.builder(file.getFileName().toString(),
                directory == null ? Path.of("") : directory).sessionInfoTags(LAST_SENT, LAST_RECEIVED).build();
        try {
            return new SessionNumbers(file, JNITboSessionInfoTable.open(configuration, mode),
                    mode == JNITboSessionInfoTable.MODE_READ);
        } catch (JNITboException refused) {
            throw TabuloException.of(refused, file);
        }
    }

    private static int tag(Direction direction) {
        return direction == Direction.SENT ? LAST_SENT : LAST_RECEIVED;
    }
}
