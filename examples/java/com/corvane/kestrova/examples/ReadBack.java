package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.util.Arrays;

/** Reads a table and compares every message with what was stored, byte for byte and in the same order. */
final class ReadBack {
    /** Ids asked for in one read. */
    private static final int IDS_PER_READ = 100_000;

    private final MessageStream stream;
    private int index;

    private ReadBack(MessageStream stream) {
        this.stream = stream;
    }

    /** Reads the first messages of a stream from its table, in batches, by their ids. */
    static void compareByIds(JNITboMessageTable table, MessageStream stream, int count, Progress progress) {
        ReadBack readBack = new ReadBack(stream);
        while (readBack.index < count) {
            int end = Math.min(readBack.index + IDS_PER_READ, count);
            int[] ids = new int[end - readBack.index];
            for (int i = 0; i < ids.length; ++i) {
                ids[i] = stream.connMsgId(readBack.index + i);
            }
            table.readMessages(ids, readBack::take);
            if (readBack.index != end) {
                throw readBack.differs();
            }
            progress.update(end);
        }
    }

    /** Reads all messages of a table one by one; there must be exactly the first ones of the stream. */
    static void compareByIterator(JNITboMessageTable table, TableConfiguration configuration, MessageStream stream,
            int count, Progress progress) {
        ReadBack readBack = new ReadBack(stream);
        try (JNITboMessageTableIterator messages =
                table.getMessages(MessageQueryConditions.builder(configuration).build())) {
            for (; messages.next(); ++readBack.index) {
                if (readBack.index >= count || !stream.isAt(messages, readBack.index)) {
                    throw readBack.differs();
                }
                progress.update(readBack.index + 1);
            }
        }
        if (readBack.index != count) {
            throw readBack.differs();
        }
    }

    private DemoFailure differs() {
        return new DemoFailure("the message with the uniform message id " + stream.uniformId(index)
                + " is missing, differs or should not be there");
    }

    private int take(int count, long[] timestamps, byte[][] wireMessages, byte[][] nonMetadataFields) {
        for (int i = 0; i < count; ++i, ++index) {
            RecordedMessage expected = stream.message(index);
            if (timestamps[i] != expected.timestamp || !Arrays.equals(wireMessages[i], expected.wire)
                    || !Arrays.equals(nonMetadataFields[i], expected.nonMetadata)) {
                // What is thrown here would only be printed; the read ends, and its caller sees where.
                return 1;
            }
        }
        return 0;
    }
}
