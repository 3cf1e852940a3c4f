package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.List;
import java.util.Random;
import org.junit.jupiter.api.RepeatedTest;

/** A virtual machine that is killed while it stores messages. */
class KilledWriterTest extends OnTables {
    private static final int MOST_ACKNOWLEDGED = 4000;

    /** Stores messages for ever and prints the number of each one once it is stored. */
    static final class Writer {
        public static void main(String[] arguments) {
            long handle = Natives.open(new Provider(Path.of(arguments[0])), Natives.WRITE);
            Random random = new Random(Long.parseLong(arguments[1]));
            for (int i = 1;; ++i) {
                int number = i;
                Message message = Message.numbered(number);
                message.wire = wire(number, random.nextInt(300));
                Natives.writeTexts(handle, message);
                System.out.println(number);
            }
        }
    }

    private static String wire(int number, int length) {
        return number + ":" + "w".repeat(length);
    }

    @RepeatedTest(4)
    void noAcknowledgedMessageIsLost() throws Exception {
        long seed = System.nanoTime();
        System.out.println("seed " + seed);
        int killAt = 1 + new Random(seed).nextInt(MOST_ACKNOWLEDGED);
        int acknowledged = 0;
        try (ChildJvm child =
                ChildJvm.startQuietly(directory, Writer.class, directory.toString(), Long.toString(seed))) {
            while (acknowledged < killAt) {
                acknowledged = Integer.parseInt(child.nextLine());
            }
            child.kill();
            for (String line = child.nextLine(); line != null && !line.isEmpty(); line = child.nextLine()) {
                if (Integer.parseInt(line) != acknowledged + 1) {
                    break;  // the last line is cut
                }
                ++acknowledged;
            }
        }
        int wanted = acknowledged;
        long handle = openForWriting();
        List<String> wires = read(handle, range(1, acknowledged + 100_000)).wires();
        assertTrue(wires.size() >= wanted, () -> wires.size() + " messages are there, " + wanted
                + " were acknowledged; seed " + seed);
        Random random = new Random(seed);
        for (int i = 1; i <= wires.size(); ++i) {
            assertEquals(wire(i, random.nextInt(300)), wires.get(i - 1), "seed " + seed);
        }
        assertEquals(wires.size(), Natives.lastUniform(handle));
        int next = wires.size() + 1;
        writeNumbered(handle, next, next);
        assertEquals(next, stored().size());
    }
}
