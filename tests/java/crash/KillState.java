package com.corvane.kestrova.engine.tabulo.jni;

import java.io.IOException;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.concurrent.TimeUnit;

/** What a writer has acknowledged, in a mapped file: it outlives the writer whenever that is killed. */
final class KillState {
    /** What the writer is doing. */
    enum Phase {
        STARTING, OPENING, WRITING, DROPPING, CLOSING
    }

    private static final VarHandle NUMBERS =
            MethodHandles.byteBufferViewVarHandle(long[].class, ByteOrder.nativeOrder());
    private static final int PHASE = 0;
    private static final int FIRST = Long.BYTES;
    private static final int ACKNOWLEDGED = 2 * Long.BYTES;
    private static final long TIMEOUT = TimeUnit.SECONDS.toNanos(60);

    private final ByteBuffer memory;

    KillState(Path file) throws IOException {
        try (FileChannel channel = FileChannel.open(file, StandardOpenOption.CREATE, StandardOpenOption.READ,
                StandardOpenOption.WRITE)) {
            memory = channel.map(FileChannel.MapMode.READ_WRITE, 0, 3L * Long.BYTES);
        }
    }

    void enter(Phase phase) {
        NUMBERS.setVolatile(memory, PHASE, (long) phase.ordinal());
    }

    Phase phase() {
        return Phase.values()[(int) (long) NUMBERS.getVolatile(memory, PHASE)];
    }

    /** False when the writer ends without coming to the phase. */
    boolean await(Phase wanted, ChildJvm writer) {
        long start = System.nanoTime();
        while (phase() != wanted) {
            if (!writer.isAlive()) {
                return false;
            }
            if (System.nanoTime() - start > TIMEOUT) {
                throw new AssertionError("the writer does not come to be " + wanted + ", it is " + phase());
            }
            Thread.onSpinWait();
        }
        return true;
    }

    /** The number of the first message that is in the table, or will be. */
    long first() {
        return (long) NUMBERS.getVolatile(memory, FIRST);
    }

    void setFirst(long number) {
        NUMBERS.setVolatile(memory, FIRST, number);
    }

    /** The number of the last message that was stored. */
    long acknowledged() {
        return (long) NUMBERS.getVolatile(memory, ACKNOWLEDGED);
    }

    void acknowledge(long number) {
        NUMBERS.setVolatile(memory, ACKNOWLEDGED, number);
    }
}
