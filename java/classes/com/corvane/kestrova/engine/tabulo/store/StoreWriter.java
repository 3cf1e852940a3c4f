package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.OptionalInt;
import java.util.function.ToIntFunction;

/**
 * A table that is open for writing: numbers the messages, and opens the table again when its file has failed.
 *
 * <p>A message whose write failed may be stored all the same. That is known as soon as the table is open again, by the
 * last uniform id, and a message that is there is not stored a second time.
 */
final class StoreWriter {
    private static final int UNKNOWN = -1;
    private static final MessageClass[] CLASSES = MessageClass.values();
    private static final Direction[] DIRECTIONS = Direction.values();

    /** Numbers that were given to a message whose write has failed. */
    static final class Attempt {
        private final int uniformId;
        private final int connMsgId;
        /** Whether the message is there; meant only once this attempt is not the open one any more. */
        private boolean isStored;

        Attempt(int uniformId, int connMsgId) {
            this.uniformId = uniformId;
            this.connMsgId = connMsgId;
        }
    }

    private final Path file;
    private final TableConfiguration configuration;
    private final long[] nextIds = new long[CLASSES.length];
    private final int[] lastSeqNums = new int[DIRECTIONS.length];
    private UniformIds uniformIds = new UniformIds();
    private JNITboMessageTable table;
    /** The attempt of which it is not known yet whether it has stored its message. */
    private Attempt uncertain;
    private boolean isClosed;

    StoreWriter(Path file, TableConfiguration configuration) {
        this.file = file;
        this.configuration = configuration;
        open();
    }

    synchronized void useIds(UniformIds ids) {
        ids.raiseTo(uniformIds.last());
        uniformIds = ids;
    }

    /** Stores a message of a class and gives its connection message id; see {@link Append#store()}. */
    synchronized int store(MessageParts message, MessageClass messageClass, FrameBuffer frame, Append from) {
        int length = frame.encode(message);
        open();
        Attempt failed = from.failedAttempt();
        if (failed != null) {
            from.setFailedAttempt(null);
            if (failed.isStored) {
                message.uniformId = failed.uniformId;
                message.connMsgId = failed.connMsgId;
                return failed.connMsgId;
            }
        }
        if (message.prevSeqNum != 0 && message.prevSeqNum != pendingRange()[0]) {
            throw new IllegalStateException("the message that waited as " + message.prevSeqNum + " was sent");
        }
        return write(message, messageClass, frame, length, from);
    }

    /** As {@link #store}, with the next number of those that wait to be sent. */
    synchronized int storePending(MessageParts message, FrameBuffer frame, Append from) {
        open();
        if (from.failedAttempt() == null || !from.failedAttempt().isStored) {
            message.seqNum = pendingRange()[1] - 1;
        }
        return store(message, MessageClass.APP_TO, frame, from);
    }

    /** The first and the last number of the messages that wait to be sent; the last is above the first if none does. */
    synchronized int[] pendingRange() {
        open();
        try {
            return new int[] {table.getPendingMsgSeqNum(Long.MIN_VALUE, false),
                table.getPendingMsgSeqNum(Long.MIN_VALUE, true)};
        } catch (JNITboException refused) {
            throw TabuloException.of(refused, file);
        }
    }

    synchronized OptionalInt lastId(MessageClass messageClass) {
        open();
        long next = nextIds[messageClass.ordinal()];
        return next == messageClass.firstId() ? OptionalInt.empty() : OptionalInt.of((int) next - 1);
    }

    synchronized int lastUniformId() {
        open();
        try {
            return table.getLastUniformMessageId();
        } catch (JNITboException refused) {
            throw TabuloException.of(refused, file);
        }
    }

    /** The last sequence number of a direction, 0 for none; it is looked up once and then kept. */
    synchronized int lastSeqNum(Direction direction, ToIntFunction<Direction> lookUp) {
        open();
        int number = lastSeqNums[direction.ordinal()];
        if (number == UNKNOWN) {
            number = lookUp.applyAsInt(direction);
            lastSeqNums[direction.ordinal()] = number;
        }
        return number;
    }

    synchronized void close() {
        isClosed = true;
        if (table != null) {
            JNITboMessageTable closing = table;
            table = null;
            try {
                closing.close();
            } catch (JNITboException failed) {
                throw TabuloException.of(failed, file);
            }
        }
    }

    private int write(MessageParts message, MessageClass messageClass, FrameBuffer frame, int length, Append from) {
        for (boolean isAgain = false;; isAgain = true) {
            number(message, messageClass, frame);
            try {
                table.writeMessage(frame.bytes(), 0, length);
            } catch (JNITboException refused) {
                if (!hasFileFailed(refused)) {
                    uniformIds.giveBack(message.uniformId);
                    throw TabuloException.of(refused, file);
                }
                if (!isStoredAfter(refused, message, from)) {
                    if (isAgain) {
                        throw TabuloException.of(refused, file);
                    }
                    continue;
                }
            }
            remember(message, messageClass);
            return message.connMsgId;
        }
    }

    private void number(MessageParts message, MessageClass messageClass, FrameBuffer frame) {
        long id = nextIds[messageClass.ordinal()];
        if (id > messageClass.lastId()) {
            throw new IllegalStateException("all connection message ids of " + messageClass + " are used: "
                    + messageClass.lastId() + " is the last");
        }
        message.uniformId = uniformIds.next();
        message.connMsgId = (int) id;
        frame.setNumbers(message);
    }

    private void remember(MessageParts message, MessageClass messageClass) {
        nextIds[messageClass.ordinal()] = message.connMsgId + 1L;
        if (message.seqNum > 0 && !message.outOfSequence) {
            for (Direction direction : DIRECTIONS) {
                if (direction.includes(messageClass)) {
                    lastSeqNums[direction.ordinal()] = message.seqNum;
                }
            }
        }
    }

    /** Closes the table and opens it again, and looks whether the message of the failed write is there. */
    private boolean isStoredAfter(JNITboException failed, MessageParts message, Append from) {
        Attempt attempt = new Attempt(message.uniformId, message.connMsgId);
        uncertain = attempt;
        JNITboMessageTable broken = table;
        table = null;
        try {
            broken.close();
        } catch (JNITboException alsoFailed) {
            failed.addSuppressed(alsoFailed);  // the table is freed all the same
        }
        try {
            open();
        } catch (TabuloException refused) {
            from.setFailedAttempt(attempt);
            failed.addSuppressed(refused);
            throw TabuloException.of(failed, file);
        }
        return attempt.isStored;
    }

    private static boolean hasFileFailed(JNITboException failed) {
        return switch (failed.getErrorCode()) {
            case JNITboErrorCodes.FILE_SEEK_ERROR, JNITboErrorCodes.FILE_WRITE_ERROR, JNITboErrorCodes.FILE_FLUSH_ERROR,
                JNITboErrorCodes.MASTER_INACTIVE_ERROR -> true;
            default -> false;
        };
    }

    /** Opens the table unless it is open, and takes from it how far messages are numbered. */
    private void open() {
        if (table != null) {
            return;
        }
        if (isClosed) {
            throw TabuloException.closed(file);
        }
        try {
            table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
            takeNumbers();
        } catch (JNITboException refused) {
            JNITboMessageTable useless = table;
            table = null;
            if (useless != null) {
                useless.close();
            }
            throw TabuloException.of(refused, file);
        }
    }

    private void takeNumbers() {
        int lastUniformId = table.getLastUniformMessageId();
        if (uncertain != null) {
            uncertain.isStored = lastUniformId == uncertain.uniformId;
            uncertain = null;
        }
        uniformIds.raiseTo(lastUniformId);
        for (MessageClass messageClass : CLASSES) {
            int last = table.getLastMessageId(messageClass.firstId());
            nextIds[messageClass.ordinal()] = isUsed(messageClass, last) ? last + 1L : messageClass.firstId();
        }
        Arrays.fill(lastSeqNums, UNKNOWN);
    }

    /**
     * The library gives a class's first id also when no message has it: then one must be looked for. Where damage hides
     * it, the id is left unused.
     */
    private boolean isUsed(MessageClass messageClass, int last) {
        if (last != messageClass.firstId()) {
            return true;
        }
        int[] count = {0};
        try {
            table.readMessages(new int[] {last}, (found, timestamps, wires, others) -> {
                count[0] += found;
                return 0;
            });
        } catch (JNITboException damaged) {
            return true;
        }
        return count[0] > 0;
    }
}
