package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.function.IntBinaryOperator;

/** Keeps every batch of a compact watch; answers by the number of the call, counted from 1, and the batch's size. */
final class CompactRecorder implements JNITboMessageWatcher.CompactListener {
    final List<Integer> counts = new ArrayList<>();
    final List<Integer> ids = new ArrayList<>();
    final List<String> wires = new ArrayList<>();
    private final IntBinaryOperator answers;

    /** Stops at the first batch without a message. */
    CompactRecorder() {
        this((call, count) -> count == 0 ? 1 : 0);
    }

    CompactRecorder(IntBinaryOperator answers) {
        this.answers = answers;
    }

    @Override
    public int onGetMessages(int count, int[] uniformIds, byte[][] wireMessages) {
        assertEquals(count, uniformIds.length, "as many ids as messages");
        assertEquals(count, wireMessages.length, "as many wire messages as messages");
        counts.add(count);
        for (int i = 0; i < count; ++i) {
            ids.add(uniformIds[i]);
            wires.add(wireMessages[i] == null ? null : new String(wireMessages[i], StandardCharsets.ISO_8859_1));
        }
        return answers.applyAsInt(counts.size(), count);
    }
}
