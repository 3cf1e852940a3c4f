package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.nio.file.Path;
import java.util.Iterator;
import java.util.List;
import java.util.Objects;
import java.util.Optional;
import java.util.OptionalInt;
import java.util.concurrent.atomic.AtomicReference;
import java.util.function.ToIntFunction;
import java.util.stream.Stream;

/**
 * A message table: an append-only log of the FIX messages of a connection.
 *
 * <pre>
 * try (MessageStore store = MessageStore.openOrCreate(path, layout)) {
 *     int id = store.append().sent().seqNum(7).type("D").text("ClOrdID", "A1").wire(bytes).store();
 *     try (Stream&lt;StoredMessage&gt; order = store.query(Query.all().text("ClOrdID", "A1"))) {
 *         order.forEach(System.out::println);
 *     }
 * }
 * </pre>
 *
 * <p>One store at a time has a table open for writing, any number may read it meanwhile, here and in other processes,
 * and see each message as soon as its storing has returned. Any number of threads may use a store; the order in which
 * their messages are stored is theirs to arrange. A stream or an iterator is used by one thread. The store closes the
 * file, and with it what was opened through it, in {@link #close()} only. Load the library first:
 * {@link Tabulo#load()}.
 */
public final class MessageStore implements AutoCloseable, Iterable<StoredMessage> {
    private final MessageReader reader;
    /** Null in a store that only reads. */
    private final StoreWriter writer;
    private final AtomicReference<Append> spare = new AtomicReference<>();
    private final Object readerLock = new Object();
    /** For queries: they go on when the writer's table has to be opened again, and take no lock of it. */
    private JNITboMessageTable readTable;
    private boolean isClosed;

    private MessageStore(MessageReader reader, StoreWriter writer) {
        this.reader = reader;
        this.writer = writer;
    }

    /**
     * Makes a table and opens it for writing.
     *
     * @param table the table's file, in a directory that exists
     * @param layout the fields, which the file keeps, and the unit of time, which it does not
     * @return the open store, to be closed by the caller
     * @throws TabuloException {@code FILE_OPEN_ERROR} when there is a file already, or the directory is missing or
     *         not permitted; {@code WRONG_PARAMETER_ERROR} when the names are too long for a header; the file errors of
     *         {@link #openWriter(Path)}
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static MessageStore create(Path table, Layout layout) {
        // An empty file is what a process leaves that was killed while it made a table.
        if (table.toFile().length() > 0) {
            throw TabuloException.of(JNITboErrorCodes.FILE_OPEN_ERROR, "Unable to open a table file. The file might"
                    + " not exist or process might not have permission", table, "there is a file already");
        }
        return openOrCreate(table, layout);
    }

    /**
     * Opens a table for writing, and makes it when there is none.
     *
     * @param table the table's file, in a directory that exists
     * @param layout the fields, which must be those of the file if there is one, and the unit of time
     * @return the open store, to be closed by the caller
     * @throws TabuloException as {@link #openWriter(Path)} does, and {@code STRING_FIELDS_COUNT_MISMATCH_ERROR},
     *         {@code NUMERIC_FIELDS_COUNT_MISMATCH_ERROR}, {@code STRING_FIELDS_NAMES_MISMATCH_ERROR},
     *         {@code NUMERIC_FIELDS_NAMES_MISMATCH_ERROR} for a file with other fields
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static MessageStore openOrCreate(Path table, Layout layout) {
        MessageReader reader = new MessageReader(table, layout);
        return new MessageStore(reader, new StoreWriter(table, reader.configuration()));
    }

    /**
     * Opens a table for writing, with the layout that stands in its file; see {@link Layout#read(Path)} for how the
     * unit of time is found. After a crash the table is recovered first.
     *
     * @param table the table's file
     * @return the open store, to be closed by the caller
     * @throws TabuloLockedException when it is open for writing elsewhere
     * @throws TabuloDamagedException when it is no table, or damaged beyond recovery
     * @throws TabuloException as {@link Layout#read(Path)} does; {@code FILE_OPEN_ERROR} when it may not be written;
     *         other file errors
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static MessageStore openWriter(Path table) {
        return openOrCreate(table, Layout.read(table));
    }

    /**
     * Opens a table for reading, with the layout that stands in its file; see {@link Layout#read(Path)} for how the
     * unit of time is found. Takes no lock and disturbs no writer.
     *
     * @param table the table's file
     * @return the open store, to be closed by the caller
     * @throws TabuloDamagedException when it is no table, or damaged
     * @throws TabuloException as {@link Layout#read(Path)} does
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static MessageStore openReader(Path table) {
        return openReader(table, Layout.read(table));
    }

    /**
     * Opens a table for reading, with a layout that is known.
     *
     * @param table the table's file
     * @param layout the fields, which must be those of the file, and the unit of time
     * @return the open store, to be closed by the caller
     * @throws TabuloException as {@link #openReader(Path)} does, and for other fields as
     *         {@link #openOrCreate(Path, Layout)} does
     * @throws UnsatisfiedLinkError when the library is not loaded
     */
    public static MessageStore openReader(Path table, Layout layout) {
        MessageStore store = new MessageStore(new MessageReader(table, layout), null);
        store.readTable();
        return store;
    }

    /**
     * Numbers the messages of this store together with those of others. Without this a store counts for itself.
     *
     * @param ids what the stores of an engine share; raised above what this store has used
     * @return this store
     * @throws TabuloException {@code READ_ONLY_ERROR} when it only reads
     */
    public MessageStore useIds(UniformIds ids) {
        writer().useIds(ids);
        return this;
    }

    /**
     * Begins a message.
     *
     * @return the message, to be filled and stored by the calling thread
     * @throws TabuloException {@code READ_ONLY_ERROR} when the store only reads
     */
    public Append append() {
        Append free = spare.getAndSet(null);
        return (free != null ? free : new Append(this, writer())).begin();
    }

    /**
     * Finds messages. A forward query also gives what is stored while it runs.
     *
     * @param query what is wanted
     * @return the messages; <b>to be closed</b>, as with try, unless it is read to its end
     * @throws IllegalArgumentException when the query asks for a field that the table does not have
     * @throws TabuloException when the table cannot be read, also while the stream is; {@code TABLE_CLOSED_ERROR} and
     *         {@code ITERATOR_CLOSED_ERROR} when the store is closed; {@link TabuloDamagedException} behind the last
     *         message in front of a damage
     */
    public Stream<StoredMessage> query(Query query) {
        return cursor(query).stream();
    }

    /**
     * All messages, as {@code query(Query.all())} gives them.
     *
     * @return an iterator, which lets go of the table at its end or with the store's close
     * @throws TabuloException as {@link #query(Query)} does
     */
    @Override
    public Iterator<StoredMessage> iterator() {
        return cursor(Query.all());
    }

    /**
     * What was sent under the numbers of a resend request.
     *
     * @param begin the first MsgSeqNum
     * @param end the last MsgSeqNum, included; 0 for all from the first on
     * @return the messages as they were sent the first time, in that order; <b>to be closed</b>, as with try, unless it
     *         is read to its end
     * @throws IllegalArgumentException when {@code end} is not 0 and below {@code begin}
     * @throws TabuloException as {@link #query(Query)} does
     */
    public Stream<StoredMessage> resend(int begin, int end) {
        Query sent = Query.all().sent();
        return query(end == 0 ? sent.seqNumsFrom(begin) : sent.seqNums(begin, end));
    }

    /**
     * The MsgSeqNum of the newest message of a direction that is in sequence and not sent again.
     *
     * @param direction which way
     * @return the number; empty when there is no such message
     * @throws TabuloException as {@link #query(Query)} does
     */
    public OptionalInt lastSeqNum(Direction direction) {
        int number = writer != null ? writer.lastSeqNum(direction, this::findLastSeqNum) : findLastSeqNum(direction);
        return number == 0 ? OptionalInt.empty() : OptionalInt.of(number);
    }

    /**
     * The highest connection message id of a class.
     *
     * @param messageClass the class
     * @return the id; empty when the table has no message of the class
     * @throws TabuloException as {@link #query(Query)} does
     */
    public OptionalInt lastId(MessageClass messageClass) {
        if (writer != null) {
            return writer.lastId(messageClass);
        }
        int last = asked(table -> table.getLastMessageId(messageClass.firstId()));
        // The library gives the first id also when there is none.
        return last != messageClass.firstId() || first(Query.all().ids(last, last)).isPresent() ? OptionalInt.of(last)
                : OptionalInt.empty();
    }

    /**
     * The uniform message id of the message that was stored last.
     *
     * @return the id; empty when there is no message
     * @throws TabuloException as {@link #query(Query)} does
     */
    public OptionalInt lastUniformId() {
        int id = writer != null ? writer.lastUniformId() : asked(JNITboMessageTable::getLastUniformMessageId);
        return id == 0 ? OptionalInt.empty() : OptionalInt.of(id);
    }

    /**
     * The messages that wait to be sent, in the order in which they are to be sent.
     *
     * @return the messages, also those that waited when the process before this one ended
     * @throws TabuloException as {@link #query(Query)} does
     */
    public List<PendingMessage> pending() {
        int[] range = pendingRange();
        if (range[1] > range[0]) {
            return List.of();
        }
        Query waiting = Query.all().classes(MessageClass.APP_TO).seqNums(range[1], range[0]);
        try (Stream<StoredMessage> messages = query(waiting)) {
            return messages.map(message -> new PendingMessage(this, message)).toList();
        }
    }

    /**
     * Compares the numbers of the last messages with those that were kept beside them, as after a crash.
     *
     * @param numbers the session's numbers
     * @return for each direction which of the two is ahead, and why
     * @throws TabuloException when one of the tables cannot be read
     */
    public Reconciliation reconcile(SessionNumbers numbers) {
        return new Reconciliation(Reconciliation.compare(this, numbers, Direction.SENT),
                Reconciliation.compare(this, numbers, Direction.RECEIVED));
    }

    /**
     * The table's fields and its unit of time.
     *
     * @return the layout
     */
    public Layout layout() {
        return reader.layout();
    }

    /**
     * The table's file.
     *
     * @return the path with which the store was opened
     */
    public Path path() {
        return reader.file();
    }

    /**
     * The table's name, which is that of its file.
     *
     * @return the name
     */
    public String name() {
        return reader.table();
    }

    /**
     * Closes the file, and every stream and iterator of this store; a second time it does nothing.
     *
     * @throws TabuloException {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR} or {@code FILE_FLUSH_ERROR} when the
     *         table's bookkeeping could not be saved: the file is closed and all messages are there, and the next open
     *         for writing recovers the rest
     */
    @Override
    public void close() {
        synchronized (readerLock) {
            isClosed = true;
            if (readTable != null) {
                readTable.close();
            }
        }
        if (writer != null) {
            writer.close();
        }
    }

    /**
     * Says which table this is.
     *
     * @return its path, and how it is open
     */
    @Override
    public String toString() {
        return "message store " + path() + (isClosed ? ", closed" : writer == null ? ", for reading" : "");
    }

    void takeBack(Append done) {
        spare.set(done);
    }

    /** Begins the sending of a message that waits. */
    Append send(StoredMessage waiting) {
        int first = pendingRange()[0];
        if (waiting.seqNum() != first) {
            throw new IllegalStateException(waiting.seqNum() > first
                    ? "the message that waited as " + waiting.seqNum() + " was sent"
                    : "the message that waits as " + first + " is to be sent before that of " + waiting.seqNum());
        }
        return new Append(this, writer()).beginSending(waiting);
    }

    private Optional<StoredMessage> first(Query query) {
        try (Stream<StoredMessage> messages = query(query)) {
            return messages.findFirst();
        }
    }

    private MessageCursor cursor(Query query) {
        return MessageCursor.open(readTable(), reader, query);
    }

    MessageReader reader() {
        return reader;
    }

    /** The messages that a direction counts, the newest first. */
    static Query counted(Direction direction) {
        return Query.all().classes(direction.classes()).seqNumsFrom(1).outOfSequence(false).backward();
    }

    private int findLastSeqNum(Direction direction) {
        return first(counted(direction)).map(StoredMessage::seqNum).orElse(0);
    }

    private int[] pendingRange() {
        if (writer != null) {
            return writer.pendingRange();
        }
        return new int[] {asked(table -> table.getPendingMsgSeqNum(Long.MIN_VALUE, false)),
            asked(table -> table.getPendingMsgSeqNum(Long.MIN_VALUE, true))};
    }

    private int asked(ToIntFunction<JNITboMessageTable> question) {
        try {
            return question.applyAsInt(readTable());
        } catch (JNITboException failed) {
            throw TabuloException.of(failed, path());
        }
    }

    private StoreWriter writer() {
        if (writer == null) {
            throw TabuloException.of(JNITboErrorCodes.READ_ONLY_ERROR,
                    "Unable to write to a table opened in read-only mode", path(), null);
        }
        return writer;
    }

    private JNITboMessageTable readTable() {
        synchronized (readerLock) {
            if (isClosed) {
                throw TabuloException.closed(path());
            }
            if (readTable == null) {
                try {
                    readTable = JNITboMessageTable.open(reader.configuration(), JNITboMessageTable.MODE_READ);
                } catch (JNITboException refused) {
                    throw TabuloException.of(refused, path());
                }
            }
            return readTable;
        }
    }
}
