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

/** Two numbers in a mapped file, by which two processes take turns: what one asks for, what the other has done. */
final class Turns {
    private static final VarHandle NUMBERS =
            MethodHandles.byteBufferViewVarHandle(long[].class, ByteOrder.nativeOrder());
    private static final int ASKED = 0;
    private static final int ANSWERED = Long.BYTES;
    private static final long TIMEOUT = TimeUnit.SECONDS.toNanos(30);

    private final ByteBuffer memory;

    Turns(Path file) throws IOException {
        try (FileChannel channel = FileChannel.open(file, StandardOpenOption.CREATE, StandardOpenOption.READ,
                StandardOpenOption.WRITE)) {
            memory = channel.map(FileChannel.MapMode.READ_WRITE, 0, 2L * Long.BYTES);
        }
    }

    void ask(long n) {
        NUMBERS.setVolatile(memory, ASKED, n);
    }

    void answer(long n) {
        NUMBERS.setVolatile(memory, ANSWERED, n);
    }

    long answered() {
        return (long) NUMBERS.getVolatile(memory, ANSWERED);
    }

    void awaitAsked(long n) {
        await(ASKED, n);
    }

    void awaitAnswered(long n) {
        await(ANSWERED, n);
    }

    private void await(int place, long n) {
        long start = System.nanoTime();
        while ((long) NUMBERS.getVolatile(memory, place) < n) {
            if (System.nanoTime() - start > TIMEOUT) {
                throw new AssertionError("the other process did not come to turn " + n);
            }
            Thread.yield();
        }
    }
}
