package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.function.IntUnaryOperator;

/** Keeps every batch; answers by the number of the call, counted from 1. */
class RecordingListener implements IKSVTboMessageListener {
    final List<Batch> batches = new ArrayList<>();
    private final IntUnaryOperator answers;

    /** One call. */
    record Batch(int count, long[] timestamps, byte[][] wires, byte[][] others) {
    }

    RecordingListener() {
        this(call -> 0);
    }

    RecordingListener(IntUnaryOperator answers) {
        this.answers = answers;
    }

    @Override
    public int onGetMessages(int count, long[] timestamps, byte[][] wires, byte[][] others) {
        batches.add(new Batch(count, timestamps, wires, others));
        return answers.applyAsInt(batches.size());
    }

    /** The sizes of the batches, after a look at the sizes of their arrays. */
    List<Integer> counts() {
        List<Integer> counts = new ArrayList<>();
        for (Batch batch : batches) {
            assertEquals(batch.count(), batch.timestamps().length, "as many time stamps as messages");
            assertEquals(batch.count(), batch.wires().length, "as many wire messages as messages");
            assertEquals(batch.count(), batch.others().length, "as many other fields as messages");
            counts.add(batch.count());
        }
        return counts;
    }

    List<Long> timestamps() {
        List<Long> all = new ArrayList<>();
        for (Batch batch : batches) {
            for (long timestamp : batch.timestamps()) {
                all.add(timestamp);
            }
        }
        return all;
    }

    List<byte[]> wireBytes() {
        List<byte[]> all = new ArrayList<>();
        batches.forEach(batch -> all.addAll(List.of(batch.wires())));
        return all;
    }

    List<String> wires() {
        List<String> all = new ArrayList<>();
        wireBytes().forEach(bytes -> all.add(new String(bytes, StandardCharsets.ISO_8859_1)));
        return all;
    }
}
