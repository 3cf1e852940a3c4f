package com.corvane.kestrova.engine.tabulo.jni;

/**
 * Steps through the messages of a query, see {@link JNITboMessageTable#getMessages(Object)}.
 *
 * <p>The getters answer for the message at which {@link #next()} arrived. Before its first call, at the end and after
 * an error there is none: numbers are then 0, flags false, the MsgType is empty, texts and arrays are null, and a field
 * that is asked for by its id is 0, empty or refused with {@link JNITboErrorCodes#INDEX_OUT_OF_BOUNDS_ERROR}.
 *
 * <p>An iterator keeps its table reachable, and the table's close or drop closes the iterator. It has the table's
 * lock: any number of threads may use it, but what {@link #next()} has found and what the getters give is one message only
 * while no other thread steps in between. After close every operation throws {@link JNITboException} with
 * {@link JNITboErrorCodes#ITERATOR_CLOSED_ERROR}.
 *
 * <p>When another process drops the table, the iterator ends for good as soon as it sees that the file has become
 * shorter than its place. A file that was dropped and has grown beyond that place between two calls cannot be told from
 * the old one: the iterator then goes on in it, or finds it damaged.
 */
public final class JNITboMessageTableIterator implements AutoCloseable {
    private final JNITboMessageTable table;
    private final HandleGuard guard;
    private final TableName name;
    private boolean isStepping;
    private long nativeHandle_;

    JNITboMessageTableIterator(JNITboMessageTable table, HandleGuard guard, TableName name) {
        this.table = table;
        this.guard = guard;
        this.name = name;
    }

    /**
     * Goes to the next selected message. At the end it may be called again: a forward query goes on when the table has
     * grown, a backward one stays at its end.
     *
     * @return true when a message is there, false at the end
     * @throws JNITboException {@code HEADER_CORRUPTED_ERROR}, {@code CONSISTENCY_ERROR} or {@code NO_DATA_ERROR} when
     *         the table is damaged; {@code MASTER_INACTIVE_ERROR} when its file is not open any more;
     *         {@code FILE_READ_ERROR}, {@code FILE_SEEK_ERROR}, {@code SYSTEM_FILE_ERROR}, {@code OUT_OF_MEMORY_ERROR}
     */
    public boolean next() {
        synchronized (guard) {
            check();
            guard.begin();
            isStepping = true;
            try {
                return next(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                isStepping = false;
                --guard.uses;
            }
        }
    }

    /**
     * The message's connection message id.
     *
     * @return the id
     */
    public int getConnectionMsgId() {
        synchronized (guard) {
            check();
            return getConnectionMsgId(nativeHandle_);
        }
    }

    /**
     * The message's uniform message id.
     *
     * @return the id
     */
    public int getUniformMessageId() {
        synchronized (guard) {
            check();
            return getUniformMessageId(nativeHandle_);
        }
    }

    /**
     * The message's MsgSeqNum.
     *
     * @return the number; negative for a pending message, 0 for none
     */
    public int getMsgSeqNum() {
        synchronized (guard) {
            check();
            return getMsgSeqNum(nativeHandle_);
        }
    }

    /**
     * The number that the message had when it was pending.
     *
     * @return the number, or 0
     */
    public int getPrevSeqNum() {
        synchronized (guard) {
            check();
            return getPrevSeqNum(nativeHandle_);
        }
    }

    /**
     * The message's time stamp.
     *
     * @return the time stamp, as it was given when the message was written
     */
    public long getTimestamp() {
        synchronized (guard) {
            check();
            return getTimestamp(nativeHandle_);
        }
    }

    /**
     * The message's MsgType.
     *
     * @return its first five bytes at most, never null
     */
    public String getMsgType() {
        synchronized (guard) {
            check();
            try {
                return getMsgType(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * Whether the message is a possible duplicate.
     *
     * @return the flag
     */
    public boolean getIsPossDupFlag() {
        synchronized (guard) {
            check();
            return getIsPossDupFlag(nativeHandle_);
        }
    }

    /**
     * Whether the message was out of sequence.
     *
     * @return the flag
     */
    public boolean getIsOutOfSequence() {
        synchronized (guard) {
            check();
            return getIsOutOfSequence(nativeHandle_);
        }
    }

    /**
     * The wire message as text. What is no UTF-8 comes as one character for each byte; for the exact bytes use
     * {@link #getWireMessageAsByteArray()}.
     *
     * @return the text, or null when it is absent
     */
    public String getWireMessage() {
        synchronized (guard) {
            check();
            try {
                return getWireMessage(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * The wire message as it was stored, without its ending NUL.
     *
     * @return a new array, empty for a message that was stored as the empty text, or null when it is absent
     */
    public byte[] getWireMessageAsByteArray() {
        synchronized (guard) {
            check();
            try {
                return getWireMessageAsByteArray(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * The message's fields without its metadata, as text. What is no UTF-8 comes as one character for each byte; for
     * the exact bytes use {@link #getNonMetadataFieldsAsByteArray()}.
     *
     * @return the text, or null when they are absent
     */
    public String getNonMetadataFields() {
        synchronized (guard) {
            check();
            try {
                return getNonMetadataFields(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * The message's fields without its metadata as they were stored, without their ending NUL.
     *
     * @return a new array, or null when they are absent
     */
    public byte[] getNonMetadataFieldsAsByteArray() {
        synchronized (guard) {
            check();
            try {
                return getNonMetadataFieldsAsByteArray(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * A string field as text.
     *
     * @param fieldId the field's id, from a method {@code stringFieldId} of
     *        {@link com.corvane.kestrova.engine.tabulo.TableConfiguration}: 0 and 1 are the leading built-in strings,
     *        then come the configured fields, the wire message, the non-metadata fields and the MsgType
     * @return the text, or null when it is absent
     * @throws JNITboException {@code INDEX_OUT_OF_BOUNDS_ERROR} when no field has that id
     */
    public String getStringField(int fieldId) {
        synchronized (guard) {
            check();
            try {
                return getStringField(nativeHandle_, fieldId);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * A numeric field as a long; a stored double is truncated towards zero, one beyond the longs becomes the nearest of
     * them, and one that is not a number 0.
     *
     * @param fieldId the field's id, from a method {@code numericFieldId} of
     *        {@link com.corvane.kestrova.engine.tabulo.TableConfiguration}: the configured fields from 0 on, behind
     *        them the {@link com.corvane.kestrova.engine.tabulo.MessageNumericField}s in their order
     * @return the value, or 0 when it is absent
     * @throws JNITboException {@code INDEX_OUT_OF_BOUNDS_ERROR} when no field has that id
     */
    public long getNumericFieldAsLong(int fieldId) {
        synchronized (guard) {
            check();
            try {
                return getNumericFieldAsLong(nativeHandle_, fieldId);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * A numeric field as a double; a stored long is converted.
     *
     * @param fieldId the field's id, as for {@link #getNumericFieldAsLong(int)}
     * @return the value, or not a number when it is absent
     * @throws JNITboException {@code INDEX_OUT_OF_BOUNDS_ERROR} when no field has that id
     */
    public double getNumericFieldAsDouble(int fieldId) {
        synchronized (guard) {
            check();
            try {
                return getNumericFieldAsDouble(nativeHandle_, fieldId);
            } catch (JNITboException failed) {
                throw failed.at(name);
            }
        }
    }

    /**
     * Ends the query and frees the iterator; on a closed iterator it does nothing.
     *
     * @throws IllegalStateException when it is called from within {@link #next()}, as from a logger
     */
    @Override
    public void close() {
        synchronized (guard) {
            if (!guard.isUsable() || nativeHandle_ == 0) {
                return;
            }
            if (isStepping) {
                throw new IllegalStateException("cannot be closed while one of its operations is running");
            }
            long handle = nativeHandle_;
            nativeHandle_ = 0;
            table.forget(this);
            close(handle);
        }
    }

    /**
     * Says which table this iterator is of.
     *
     * @return the table's name and its file's path, and whether the iterator is closed
     */
    @Override
    public String toString() {
        return "iterator of " + table + (nativeHandle_ == 0 ? ", itself closed" : "");
    }

    /** Gives the iterator its native part, under the table's lock. */
    void open(long handle) {
        nativeHandle_ = handle;
    }

    boolean isOpen() {
        return nativeHandle_ != 0;
    }

    /** Under the table's lock: refuses the use of a closed iterator. */
    private void check() {
        if (nativeHandle_ == 0 || !guard.isUsable()) {
            throw closed();
        }
    }

    private JNITboException closed() {
        return JNITboException.iteratorClosed().at(name);
    }

    private static native void close(long handle);

    private static native boolean next(long handle);

    private static native int getConnectionMsgId(long handle);

    private static native int getUniformMessageId(long handle);

    private static native int getMsgSeqNum(long handle);

    private static native int getPrevSeqNum(long handle);

    private static native long getTimestamp(long handle);

    private static native String getMsgType(long handle);

    private static native boolean getIsPossDupFlag(long handle);

    private static native boolean getIsOutOfSequence(long handle);

    private static native String getWireMessage(long handle);

    private static native byte[] getWireMessageAsByteArray(long handle);

    private static native String getNonMetadataFields(long handle);

    private static native byte[] getNonMetadataFieldsAsByteArray(long handle);

    private static native String getStringField(long handle, int fieldId);

    private static native long getNumericFieldAsLong(long handle, int fieldId);

    private static native double getNumericFieldAsDouble(long handle, int fieldId);
}
