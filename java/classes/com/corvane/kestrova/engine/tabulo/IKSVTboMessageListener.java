package com.corvane.kestrova.engine.tabulo;

/**
 * Receives stored messages in batches of at most 1000.
 *
 * <p>All three arrays have exactly {@code count} elements, are made for this call and belong to the listener. At the
 * end of the data what is held is handed over, also when it is nothing: then {@code count} is 0.
 */
@FunctionalInterface
public interface IKSVTboMessageListener {
    /**
     * Takes one batch.
     *
     * <p>The call comes on the thread that reads, in the middle of the read. The listener may look up or read from the
     * same table, but must not close or drop it; the table refuses that. When the listener throws, the exception is
     * printed and the read ends with
     * {@link com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes#JNI_ERROR}.
     *
     * @param count number of messages in the batch, 0 to 1000
     * @param timestamps time stamp of each message, as it was given when the message was written
     * @param wireMessages wire message of each message without the ending NUL, null where none was stored
     * @param nonMetadataFields non-metadata fields of each message, in the same form
     * @return 0 to go on; any other value ends the read, and no further call comes
     */
    int onGetMessages(int count, long[] timestamps, byte[][] wireMessages, byte[][] nonMetadataFields);

    /**
     * Told before each batch of a watch which tables its messages come from; does nothing unless it is overridden. A
     * read of one table does not call it.
     *
     * @param tableIndexes for each message the place of its table among those that the watcher was made of, counted
     *        from 0; belongs to the listener
     */
    default void onBatchTables(int[] tableIndexes) {
    }
}
