package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import java.util.HashSet;
import java.util.List;
import java.util.Set;

/**
 * A message table: an append-only log of the FIX messages of a connection, each with its metadata and indexed fields.
 *
 * <p>One process at a time has a table open for writing; any number may have it open for reading meanwhile and see each
 * message as soon as its write has returned. A stored message survives the end of the process, however it ends; see
 * {@link JNITboLibLoader#setDoSyncToDisk(boolean, int, int)} for the loss of power.
 *
 * <p>Any number of threads may use a table and the iterators opened through it: one call at a time runs, and a message
 * is never torn. The order between threads is theirs to arrange. A callback may use the table that it is called for, but
 * not close or drop it; a close waits for the call under way on another thread. While a watch runs on the table, calls
 * from other threads throw {@link IllegalStateException}. The native object behind it is freed by {@link #close()} only. Failed operations throw {@link JNITboException}; after close all of them do, with
 * {@link JNITboErrorCodes#TABLE_CLOSED_ERROR}.
 *
 * <p>Time stamps are the caller's: the library compares them as signed numbers and gives them no unit.
 */
public final class JNITboMessageTable implements AutoCloseable {
    /** Opens an existing table for reading. */
    public static final int MODE_READ = 0;
    /** Opens a table for reading and writing, and creates it when it is missing; its directory must be there. */
    public static final int MODE_WRITE = 1;

    private final TableName name;
    private final HandleGuard guard;
    private final Set<JNITboMessageTableIterator> iterators = new HashSet<>();
    private long nativeHandle_;

    private JNITboMessageTable(TableName name) {
        this.name = name;
        guard = new HandleGuard(() -> JNITboException.tableClosed().at(name));
    }

    /**
     * Opens a table. When a table that was not closed is opened for writing, it is recovered first: a message whose
     * write was cut is removed, every other one is kept. When more than one cut write is removed, for example behind a
     * damaged place, the bytes are first saved beside the table as {@code <table>.cut-<file offset>}, with a warning.
     *
     * @param configProvider a {@link com.corvane.kestrova.engine.tabulo.TableConfiguration}, or any object with its six
     *        methods that begin with "get". <b>Its database root must end with "/"</b>: any other root is joined to
     *        the table's name by a backslash, also on Linux
     * @param mode {@link #MODE_READ} or {@link #MODE_WRITE}; the library's own third mode, which empties a table, is
     *        refused here: {@link #drop()} does that
     * @return the open table, to be closed by the caller
     * @throws JNITboException {@code WRONG_PARAMETER_ERROR} for any other mode, and then nothing is touched, or when
     *         the field names are so long that a new file's header would not hold them; {@code FILE_OPEN_ERROR} when
     *         the file is missing (for reading), its directory is missing (none is created), it is not permitted, or
     *         open for writing elsewhere; {@code STRING_FIELDS_COUNT_MISMATCH_ERROR},
     *         {@code NUMERIC_FIELDS_COUNT_MISMATCH_ERROR}, {@code STRING_FIELDS_NAMES_MISMATCH_ERROR},
     *         {@code NUMERIC_FIELDS_NAMES_MISMATCH_ERROR} or {@code CONFIG_MISMATCH_ERROR} when the file was created
     *         with another configuration; {@code SIGNATURE_ERROR}, {@code BYTE_ORDER_ERROR}, {@code VERSION_ERROR},
     *         {@code TABLE_TYPE_ERROR} or {@code HEADER_CORRUPTED_ERROR} when it is no such table or damaged;
     *         {@code FILE_SIZE_ERROR} when it is empty and opened for reading, or has so few bytes, 1 to 19, that they
     *         do not tell whether it is a table; {@code STREAM_NOT_ENOUGH_DATA_ERROR}, and for exactly 19 bytes
     *         {@code STREAM_READ_RESET_ERROR}, when it is opened for reading and its header is cut (opening it for
     *         writing recovers it from 20 bytes on); {@code STRING_FIELDS_LIMIT_ERROR} or
     *         {@code NUMERIC_FIELDS_LIMIT_ERROR} for more than 12 or 16 names; {@code JNI_ERROR} or
     *         {@code NULL_POINTER_ERROR} when the provider lacks something
     */
    public static JNITboMessageTable open(Object configProvider, int mode) {
        OpenMode.check(mode);
        JNITboMessageTable table = new JNITboMessageTable(TableName.of(configProvider));
        try {
            table.nativeHandle_ = initializeNative(configProvider, mode);
            return table;
        } catch (UnsatisfiedLinkError notLoaded) {
            throw JNITboLibLoader.explained(notLoaded);
        } catch (JNITboException failed) {
            throw failed.at(table.name);
        }
    }

    /**
     * Stores a message given as text. The strings are stored as modified UTF-8: for a message that is not plain ASCII,
     * or holds a zero character, these are not the bytes that were on the wire; use the overload with byte ranges.
     *
     * <p>When this throws one of the file errors ({@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR},
     * {@code FILE_FLUSH_ERROR}), the library has closed the file: further writes give {@code FILE_WRITE_ERROR}, reads
     * and lookups {@code MASTER_INACTIVE_ERROR}, and {@link #close()} only frees the table.
     * Close the table and open it again before going on. The message may then be stored again, except in one case:
     * when the file took the message and only the bookkeeping that follows every block of messages failed, the message
     * counts as stored, and must <em>not</em> be stored again. Ask {@link #getLastUniformMessageId()} after opening
     * the table again.
     *
     * @param uniformId the uniform message id, increasing over all tables of an engine
     * @param seqNum the MsgSeqNum; negative for a pending message, 0 for none
     * @param prevSeqNum the number that a pending message had before it was sent, else 0
     * @param connMsgId the connection message id, which tells the message's class, see {@link MessageClass}
     * @param timestamp the message's time, in a unit of the caller's choice
     * @param msgTypeChar the MsgType when {@code msgType} is null or longer than five bytes
     * @param msgType the MsgType of at most five bytes, or null
     * @param isPossDupFlag whether the message is a possible duplicate
     * @param isOutOfSequence whether the message was out of sequence
     * @param builtIn0 the first leading built-in string, of the caller's choice, or null
     * @param builtIn1 the second leading built-in string, of the caller's choice, or null
     * @param wireMessage the wire message, or null
     * @param nonMetadataFields the message's fields without its metadata, or null
     * @param stringFields one value for each configured string field, null where the message has none; a null array
     *        counts as one without values, which only a table without string fields takes
     * @param numericFields values of the first configured numeric fields; those behind its end are absent, and so are
     *        all of them when it is null
     * @throws JNITboException {@code STRING_FIELDS_COUNT_MISMATCH_ERROR} when the number of string values is not that
     *         of the configured fields; {@code NUMERIC_FIELDS_COUNT_MISMATCH_ERROR} when there are more numbers than
     *         configured fields; {@code STRING_FIELDS_LIMIT_ERROR} or {@code NUMERIC_FIELDS_LIMIT_ERROR} for more
     *         than 12 or 16; {@code READ_ONLY_ERROR} on a table opened for reading; the file errors
     *         {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR} and {@code FILE_FLUSH_ERROR} when the file did not
     *         take it
     */
    public void writeMessage(int uniformId, int seqNum, int prevSeqNum, int connMsgId, long timestamp,
            char msgTypeChar, String msgType, boolean isPossDupFlag, boolean isOutOfSequence, String builtIn0,
            String builtIn1, String wireMessage, String nonMetadataFields, String[] stringFields,
            double[] numericFields) {
        synchronized (guard) {
            guard.begin();
            try {
                writeMessage(nativeHandle_, uniformId, seqNum, prevSeqNum, connMsgId, timestamp, msgTypeChar, msgType,
                        isPossDupFlag, isOutOfSequence, builtIn0, builtIn1, wireMessage, nonMetadataFields, stringFields,
                        numericFields);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Stores a message given as bytes, which are stored as they are. The wire message is made of two ranges, one behind
     * the other. What is said of failures at the overload with text holds here too.
     *
     * @param uniformId the uniform message id, increasing over all tables of an engine
     * @param seqNum the MsgSeqNum; negative for a pending message, 0 for none
     * @param prevSeqNum the number that a pending message had before it was sent, else 0
     * @param connMsgId the connection message id, which tells the message's class, see {@link MessageClass}
     * @param timestamp the message's time, in a unit of the caller's choice
     * @param msgTypeChar the MsgType when {@code msgType} is null or longer than five bytes
     * @param msgType the MsgType of at most five bytes, or null
     * @param isPossDupFlag whether the message is a possible duplicate
     * @param isOutOfSequence whether the message was out of sequence
     * @param builtIn0 the first leading built-in string, of the caller's choice, or null
     * @param builtIn1 the second leading built-in string, of the caller's choice, or null
     * @param wire1 bytes of the wire message's beginning; null counts as empty, and when {@code wire2} is null too the
     *        wire message is absent
     * @param wireOffset1 where the beginning starts in {@code wire1}
     * @param wireLength1 length of the beginning in bytes
     * @param wire2 bytes of the wire message's rest; null counts as empty
     * @param wireOffset2 where the rest starts in {@code wire2}
     * @param wireLength2 length of the rest in bytes
     * @param nonMetadata bytes of the message's fields without its metadata; null when they are absent
     * @param nonMetadataOffset where these start in {@code nonMetadata}
     * @param nonMetadataLength length of these in bytes
     * @param stringFields values of the configured string fields, null where the message has none; null when it has
     *        none at all
     * @param numericTypes for each configured numeric field: 0 when it is absent, n above 0 for {@code longs[n - 1]},
     *        -n below 0 for {@code doubles[n - 1]}; null is fine on a table without numeric fields
     * @param longs long values, at most 16; null for none
     * @param doubles double values, at most 16; null for none
     * @throws JNITboException {@code STRING_FIELDS_COUNT_MISMATCH_ERROR} when the number of string values is not that
     *         of the configured fields; {@code NUMERIC_FIELDS_COUNT_MISMATCH_ERROR} when {@code numericTypes} has fewer
     *         elements than there are configured fields; {@code INDEX_OUT_OF_BOUNDS_ERROR} when one of them points
     *         past the values; {@code JNI_ERROR} when a range does not lie in its array; {@code READ_ONLY_ERROR} on a
     *         table opened for reading; the file errors {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR} and
     *         {@code FILE_FLUSH_ERROR} when the file did not take it
     */
    public void writeMessage(int uniformId, int seqNum, int prevSeqNum, int connMsgId, long timestamp,
            char msgTypeChar, String msgType, boolean isPossDupFlag, boolean isOutOfSequence, String builtIn0,
            String builtIn1, byte[] wire1, int wireOffset1, int wireLength1, byte[] wire2, int wireOffset2,
            int wireLength2, byte[] nonMetadata, int nonMetadataOffset, int nonMetadataLength, String[] stringFields,
            int[] numericTypes, long[] longs, double[] doubles) {
        synchronized (guard) {
            guard.begin();
            try {
                if (stringFields != null) {
                    name.refuseOtherCount(stringFields.length);
                }
                writeMessage(nativeHandle_, uniformId, seqNum, prevSeqNum, connMsgId, timestamp, msgTypeChar, msgType,
                        isPossDupFlag, isOutOfSequence, builtIn0, builtIn1, wire1, wireOffset1, wireLength1, wire2,
                        wireOffset2, wireLength2, nonMetadata, nonMetadataOffset, nonMetadataLength, stringFields,
                        numericTypes, longs, doubles);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Stores a message that is an encoded frame already, as it stands in a table file with the same fields. Bytes
     * behind the frame are ignored. What is said of failures at the overload with text holds here too.
     *
     * @param frame holds the frame
     * @param offset where the frame starts
     * @param length number of bytes from there on
     * @throws JNITboException {@code NULL_POINTER_ERROR} when {@code frame} is null; {@code JNI_ERROR} when the range
     *         does not lie in it; {@code NO_DATA_ERROR} when the frame is cut; {@code CONSISTENCY_ERROR} when it
     *         contradicts itself; {@code READ_ONLY_ERROR} on a table opened for reading; the file errors
     *         {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR} and {@code FILE_FLUSH_ERROR} when the file did not
     *         take it
     */
    public void writeMessage(byte[] frame, int offset, int length) {
        synchronized (guard) {
            guard.begin();
            try {
                writeMessage(nativeHandle_, frame, offset, length);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Reads messages with given connection message ids, in the order in which they were stored. Ids that no message
     * has are ignored; a message whose id is given twice comes once.
     *
     * @param connMsgIds the ids, in any order
     * @param listener receives the messages with their time stamps, in batches of at most 1000
     * @throws JNITboException {@code NULL_POINTER_ERROR} when {@code listener} is null; {@code JNI_ERROR} when it
     *         throws, which is printed first, or when {@code connMsgIds} is null; {@code MASTER_INACTIVE_ERROR} when
     *         the file is not open any more; {@code HEADER_CORRUPTED_ERROR} or {@code CONSISTENCY_ERROR} when it is
     *         damaged; {@code FILE_READ_ERROR}
     */
    public void readMessages(int[] connMsgIds, IKSVTboMessageListener listener) {
        // A negative count stands for the whole array, and leaves a null array to the library.
        readMessages(connMsgIds, -1, listener);
    }

    /**
     * Reads messages as {@link #readMessages(int[], IKSVTboMessageListener)} does, for the first ids of an array.
     *
     * @param connMsgIds the ids, in any order
     * @param count number of ids to use, from the array's beginning; a negative number means all
     * @param listener receives the messages with their time stamps, in batches of at most 1000
     * @throws JNITboException as the other overload does, and {@code JNI_ERROR} when {@code count} is above the
     *         array's length
     */
    public void readMessages(int[] connMsgIds, int count, IKSVTboMessageListener listener) {
        synchronized (guard) {
            guard.begin();
            try {
                readMessages(nativeHandle_, connMsgIds, count, listener);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Opens a query over the table. Its messages come in the order in which they were stored, or in the reverse order
     * when the conditions say so.
     *
     * <p>A forward query also delivers what is stored while it is open. A backward one delivers all that was stored
     * when it was opened; messages stored between that and its first {@link JNITboMessageTableIterator#next()} may be
     * among them or not.
     *
     * @param conditions a {@link com.corvane.kestrova.engine.tabulo.MessageQueryConditions}, or any object with its
     *        methods that begin with "get"; read now, in the order in which that class has them, and not kept
     * @return the iterator, before its first message; close it, or this table's close does
     * @throws JNITboException {@code JNI_ERROR} when {@code conditions} lacks a method or one throws, which is printed
     *         first; {@code NULL_POINTER_ERROR} when {@code conditions}, an accepted value or an excluded MsgType is
     *         null, or when a backward query cannot read the table's end, which the detail explains; {@code WRONG_PARAMETER_ERROR} when a
     *         filter has not as many minimums as maximums; {@code NOT_IMPLEMENTED_ERROR} when the type of a numeric
     *         filter is neither 1 nor 2, or is not given
     */
    public JNITboMessageTableIterator getMessages(Object conditions) {
        synchronized (guard) {
            guard.begin();
            try {
                if (conditions instanceof MessageQueryConditions ours) {
                    ours.refuseOtherFields(name.fields());
                }
                // Made and remembered before there is something native that could be lost.
                JNITboMessageTableIterator iterator = new JNITboMessageTableIterator(this, guard, name);
                iterators.add(iterator);
                try {
                    iterator.open(getMessages(nativeHandle_, conditions));
                } finally {
                    if (!iterator.isOpen()) {
                        iterators.remove(iterator);
                    }
                }
                return iterator;
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Looks up the highest connection message id that was stored in a class.
     *
     * @param classBaseId any id of the class, usually its first
     * @return the highest id, or {@code classBaseId} when the class has none
     * @throws JNITboException {@code INDEX_OUT_OF_BOUNDS_ERROR} when {@code classBaseId} is negative;
     *         {@code MASTER_INACTIVE_ERROR} or {@code FILE_READ_ERROR} on a table opened for reading
     */
    public int getLastMessageId(int classBaseId) {
        synchronized (guard) {
            guard.begin();
            try {
                return getLastMessageId(nativeHandle_, classBaseId);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Looks up the MsgSeqNum of the newest message that is in sequence, not pending and not of the class
     * {@link MessageClass#RESENT}.
     *
     * @param sinceTimestamp the earliest time stamp that the message may have
     * @param holder receives the message's time stamp when there is one that is not 0: a
     *        {@link com.corvane.kestrova.engine.tabulo.TimestampHolder}, any object with a method
     *        {@code void setValue(long)}, or null
     * @return the number, or 0 when there is no such message
     * @throws JNITboException {@code JNI_ERROR} when the holder has no such method or it throws;
     *         {@code MASTER_INACTIVE_ERROR} or {@code FILE_READ_ERROR} on a table opened for reading
     */
    public int getLastGoodMsgSeqNum(long sinceTimestamp, Object holder) {
        synchronized (guard) {
            guard.begin();
            try {
                return getLastGoodMsgSeqNum(nativeHandle_, sinceTimestamp, holder);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Looks up the sequence number of a pending outgoing application message. Pending messages have negative numbers,
     * counting down from -1; one that is sent is stored again, with a positive MsgSeqNum and its pending number beside.
     *
     * @param sinceTimestamp the earliest time stamp that the message may have
     * @param last true for the newest pending message, false for the first one that is not sent yet
     * @return for the newest: its number, or 0 when there is none; for the first: one less than the number of the
     *         pending message that was sent last, or -1 when none was, whether or not any is pending
     * @throws JNITboException {@code MASTER_INACTIVE_ERROR} or {@code FILE_READ_ERROR} on a table opened for reading
     */
    public int getPendingMsgSeqNum(long sinceTimestamp, boolean last) {
        synchronized (guard) {
            guard.begin();
            try {
                return getPendingMsgSeqNum(nativeHandle_, sinceTimestamp, last);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Looks up the uniform message id of the message that was stored last.
     *
     * @return the id, or 0 when the table is empty
     * @throws JNITboException {@code MASTER_INACTIVE_ERROR} or {@code FILE_READ_ERROR} on a table opened for reading
     */
    public int getLastUniformMessageId() {
        synchronized (guard) {
            guard.begin();
            try {
                return getLastUniformMessageId(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Removes all messages; the table stays open and is as new. Iterators opened through this table are closed; those
     * of other tables open on the same file, here or in another process, come to their end.
     *
     * @throws JNITboException {@code READ_ONLY_ERROR} on a table opened for reading, and then nothing is removed;
     *         {@code FILE_TRUNCATE_ERROR} and other file errors
     * @throws IllegalStateException when it is called from within one of the table's or an iterator's operations, or a
     *         watcher follows the table
     */
    public void drop() {
        synchronized (guard) {
            if (!guard.isClosable()) {
                throw JNITboException.tableClosed().at(name);
            }
            guard.begin();
            try {
                closeIterators();
                dropNative(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Closes the iterators opened through this table, saves the table's bookkeeping when it is open for writing, closes
     * its file and frees it; on a closed table it does nothing. The table is freed also when this throws.
     *
     * @throws JNITboException {@code FILE_SEEK_ERROR}, {@code FILE_WRITE_ERROR} or {@code FILE_FLUSH_ERROR} when the
     *         bookkeeping could not be saved, as it is behind a write that failed with one of these; the stored
     *         messages are in the file all the same, and the next open for writing recovers the rest
     * @throws IllegalStateException when it is called from within one of the table's or an iterator's operations, or a
     *         watcher follows the table; then the table stays open
     */
    @Override
    public void close() {
        synchronized (guard) {
            if (!guard.isClosable()) {
                return;
            }
            closeIterators();
            guard.shut();
            long handle = nativeHandle_;
            nativeHandle_ = 0;
            try {
                closeNative(handle);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                uninitializeNative(handle);
            }
        }
    }

    /**
     * Says which table this is.
     *
     * @return its name and its file's path, and whether it is closed
     */
    @Override
    public String toString() {
        return "message table " + name + (nativeHandle_ == 0 ? ", closed" : "");
    }

    /** What is known of this table besides what is native. */
    TableName name() {
        return name;
    }

    /** The table's handle, for a watcher that refers to it. */
    long handleForWatcher() {
        synchronized (guard) {
            guard.begin();
            --guard.uses;
            return nativeHandle_;
        }
    }

    /** For a watch on this table: see {@link HandleGuard#beginWatch()}. */
    HandleGuard guard() {
        return guard;
    }

    void forget(JNITboMessageTableIterator closed) {
        iterators.remove(closed);
    }

    private void closeIterators() {
        for (JNITboMessageTableIterator iterator : List.copyOf(iterators)) {
            iterator.close();
        }
    }

    private static native long initializeNative(Object configProvider, int mode);

    private static native void uninitializeNative(long handle);

    private static native void closeNative(long handle);

    private static native void dropNative(long handle);

    private static native void writeMessage(long handle, int uniformId, int seqNum, int prevSeqNum, int connMsgId,
            long timestamp, char msgTypeChar, String msgType, boolean isPossDupFlag, boolean isOutOfSequence,
            String builtIn0, String builtIn1, String wireMessage, String nonMetadataFields, String[] stringFields,
            double[] numericFields);

    private static native void writeMessage(long handle, int uniformId, int seqNum, int prevSeqNum, int connMsgId,
            long timestamp, char msgTypeChar, String msgType, boolean isPossDupFlag, boolean isOutOfSequence,
            String builtIn0, String builtIn1, byte[] wire1, int wireOffset1, int wireLength1, byte[] wire2,
            int wireOffset2, int wireLength2, byte[] nonMetadata, int nonMetadataOffset, int nonMetadataLength,
            String[] stringFields, int[] numericTypes, long[] longs, double[] doubles);

    private static native void writeMessage(long handle, byte[] frame, int offset, int length);

    private static native void readMessages(long handle, int[] connMsgIds, int count, Object listener);

    private static native long getMessages(long handle, Object conditions);

    private static native int getLastMessageId(long handle, int classBaseId);

    private static native int getLastGoodMsgSeqNum(long handle, long sinceTimestamp, Object holder);

    private static native int getPendingMsgSeqNum(long handle, long sinceTimestamp, boolean last);

    private static native int getLastUniformMessageId(long handle);
}
