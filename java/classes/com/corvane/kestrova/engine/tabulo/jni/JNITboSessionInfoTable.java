package com.corvane.kestrova.engine.tabulo.jni;

/**
 * A session info table: up to 32 numbers of a session's state, each addressed by an integer tag.
 *
 * <p>A table opened for reading sees what another process writes. With its first {@link #write(int[], long[])} or
 * {@link #drop()} it becomes the writer itself, if no other process is, and keeps others from writing until it is
 * closed.
 *
 * <p>Any number of threads may use a table: one call at a time runs, and a close waits for it. The native object behind it is freed by {@link #close()} only. Failed
 * operations throw {@link JNITboException}; after close all of them do, with {@link
 * JNITboErrorCodes#TABLE_CLOSED_ERROR}.
 */
public final class JNITboSessionInfoTable implements AutoCloseable {
    /** Opens an existing table for reading. */
    public static final int MODE_READ = 0;
    /** Opens a table for reading and writing, and creates it when it is missing; its directory must be there. */
    public static final int MODE_WRITE = 1;

    private final TableName name;
    private final HandleGuard guard;
    private long nativeHandle_;

    private JNITboSessionInfoTable(TableName name) {
        this.name = name;
        guard = new HandleGuard(() -> JNITboException.tableClosed().at(name));
    }

    /**
     * Opens a table. A table whose values were cut short is repaired when it is opened for writing.
     *
     * @param configProvider a {@link com.corvane.kestrova.engine.tabulo.TableConfiguration}, or any object with its six
     *        methods that begin with "get"; its database root must end with "/"
     * @param mode {@link #MODE_READ} or {@link #MODE_WRITE}; the library's own third mode, which empties a table, is
     *        refused here: {@link #drop()} does that
     * @return the open table, to be closed by the caller
     * @throws JNITboException {@code WRONG_PARAMETER_ERROR} for any other mode, and then nothing is touched;
     *         {@code FILE_OPEN_ERROR} when the file is missing (for reading), its directory is missing (none is
     *         created), it is not permitted, or open for writing elsewhere; {@code CONFIG_MISMATCH_ERROR} when a
     *         configured tag is not in the file; {@code SIGNATURE_ERROR}, {@code BYTE_ORDER_ERROR},
     *         {@code VERSION_ERROR}, {@code TABLE_TYPE_ERROR} or {@code HEADER_CORRUPTED_ERROR} when it is no such
     *         table or damaged; {@code FILE_SIZE_ERROR} when it is empty and opened for reading, or its first bytes
     *         are cut; {@code STREAM_NOT_ENOUGH_DATA_ERROR} when its list of tags is cut; {@code FILE_READ_ERROR} when
     *         it is opened for reading and its values are cut; {@code INDEX_OUT_OF_BOUNDS_ERROR} for more than 32
     *         tags; {@code JNI_ERROR} or {@code NULL_POINTER_ERROR} when the provider lacks something
     */
    public static JNITboSessionInfoTable open(Object configProvider, int mode) {
        OpenMode.check(mode);
        JNITboSessionInfoTable table = new JNITboSessionInfoTable(TableName.of(configProvider));
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
     * Stores values and keeps the others as they are.
     *
     * @param tags the tags to set
     * @param values as many values, one for each tag
     * @throws JNITboException {@code WRONG_PARAMETER_ERROR} when a tag is unknown, and then nothing is changed;
     *         {@code JNI_ERROR} when there are fewer values than tags; {@code FILE_OPEN_ERROR} when the table was
     *         opened for reading and another process writes it, and then it goes on reading; {@code FILE_SEEK_ERROR},
     *         {@code FILE_WRITE_ERROR} or {@code FILE_FLUSH_ERROR} when the file did not take it: close the table and
     *         open it again
     */
    public void write(int[] tags, long[] values) {
        synchronized (guard) {
            guard.begin();
            try {
                writeFieldsNative(nativeHandle_, tags.length, tags, values);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Stores one value and keeps the others as they are.
     *
     * @param tag the tag to set
     * @param value its value
     * @throws JNITboException as {@link #write(int[], long[])} does
     */
    public void write(int tag, long value) {
        write(new int[] {tag}, new long[] {value});
    }

    /**
     * Reads values; a value that was never written is 0.
     *
     * @param tags the tags to read, at most 32
     * @return their values, in the same order
     * @throws JNITboException {@code NO_DATA_ERROR} when a tag is unknown; {@code MASTER_INACTIVE_ERROR} when the file
     *         is not open any more; {@code FILE_READ_ERROR}
     */
    public long[] read(int... tags) {
        long[] values = new long[tags.length];
        synchronized (guard) {
            guard.begin();
            try {
                readFieldsNative(nativeHandle_, tags.length, tags, values);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
        return values;
    }

    /**
     * Sets every value to 0; the file stays.
     *
     * @throws JNITboException as {@link #write(int[], long[])} does
     */
    public void drop() {
        synchronized (guard) {
            guard.begin();
            try {
                dropNative(nativeHandle_);
            } catch (JNITboException failed) {
                throw failed.at(name);
            } finally {
                --guard.uses;
            }
        }
    }

    /**
     * Closes the file and frees the table; on a closed table it does nothing.
     *
     * @throws IllegalStateException when it is called from within one of the table's operations, as from a logger
     */
    @Override
    public void close() {
        synchronized (guard) {
            if (guard.isClosable()) {
                guard.shut();
                long handle = nativeHandle_;
                nativeHandle_ = 0;
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
        return "session info table " + name + (nativeHandle_ == 0 ? ", closed" : "");
    }

    private static native long initializeNative(Object configProvider, int mode);

    private static native void uninitializeNative(long handle);

    private static native void dropNative(long handle);

    private static native void writeFieldsNative(long handle, int count, int[] tags, long[] values);

    private static native void readFieldsNative(long handle, int count, int[] tags, long[] values);
}
