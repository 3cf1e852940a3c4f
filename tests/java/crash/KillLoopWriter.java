package com.corvane.kestrova.engine.tabulo.jni;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;

/** An engine that is killed: stores messages for ever, drops the table, closes it and opens it again. */
final class KillLoopWriter {
    private static final int LONGEST_WIRE = 300;
    private static final int MOST_BEFORE_A_DROP = 6000;
    private static final int MOST_BEFORE_A_CLOSE = 3000;

    private KillLoopWriter() {
    }

    static TableConfiguration configuration(Path directory) {
        return TableConfiguration.builder("killed", directory).stringFields("Number").numericFields("Half").build();
    }

    /** The content of a message, which its number and the run's seed decide alone. */
    static byte[] wire(long seed, int number) {
        Random random = new Random(seed * 31 + number);
        byte[] wire = new byte[random.nextInt(LONGEST_WIRE)];
        if (isText(number)) {
            for (int i = 0; i < wire.length; ++i) {
                wire[i] = (byte) ('A' + random.nextInt(26));
            }
        } else {
            random.nextBytes(wire);
        }
        return wire;
    }

    /** Whether a message goes through the overload with text. */
    static boolean isText(int number) {
        return number % 3 == 0;
    }

    static void store(JNITboMessageTable table, long seed, int number) {
        byte[] wire = wire(seed, number);
        String[] strings = {"n" + number};
        if (isText(number)) {
            table.writeMessage(number, number, 0, number % 1000, number, 'D', null, false, false, null, null,
                    new String(wire, StandardCharsets.ISO_8859_1), "other" + number, strings,
                    new double[] {number / 2.0});
        } else {
            byte[] other = ("other" + number).getBytes(StandardCharsets.ISO_8859_1);
            int cut = wire.length / 2;
            table.writeMessage(number, number, 0, number % 1000, number, 'D', null, false, false, null, null, wire, 0,
                    cut, wire, cut, wire.length - cut, other, 0, other.length, strings, new int[] {-1}, null,
                    new double[] {number / 2.0});
        }
    }

    /** The numbers of all messages of an open table; a message with another content than its number's is an error. */
    static List<Integer> numbers(JNITboMessageTable table, Path directory, long seed) {
        List<Integer> numbers = new ArrayList<>();
        TableConfiguration configuration = configuration(directory);
        int name = configuration.stringFieldId("Number");
        int half = configuration.numericFieldId("Half");
        MessageQueryConditions all = MessageQueryConditions.builder(configuration).build();
        try (JNITboMessageTableIterator messages = table.getMessages(all)) {
            while (messages.next()) {
                int number = messages.getUniformMessageId();
                boolean isWhole = Arrays.equals(wire(seed, number), messages.getWireMessageAsByteArray())
                        && messages.getNonMetadataFields().equals("other" + number)
                        && messages.getStringField(name).equals("n" + number) && messages.getTimestamp() == number
                        && messages.getNumericFieldAsDouble(half) == number / 2.0;
                if (!isWhole) {
                    throw new AssertionError("message " + number + " is not what was stored");
                }
                numbers.add(number);
            }
        }
        return numbers;
    }

    /** Arguments: the directory, the seed, the number of this run. */
    public static void main(String[] arguments) throws Exception {
        Natives.load();
        Path directory = Path.of(arguments[0]);
        long seed = Long.parseLong(arguments[1]);
        Random random = new Random(seed + Long.parseLong(arguments[2]));
        KillState state = new KillState(directory.resolve("state"));
        int number = (int) state.acknowledged();
        for (;;) {
            state.enter(KillState.Phase.OPENING);
            try (JNITboMessageTable table =
                    JNITboMessageTable.open(configuration(directory), JNITboMessageTable.MODE_WRITE)) {
                int stored = table.getLastUniformMessageId();
                if (stored > number) {
                    number = stored;  // the message at whose writing the one before was killed
                    state.acknowledge(number);
                }
                state.enter(KillState.Phase.WRITING);
                for (int i = random.nextInt(MOST_BEFORE_A_CLOSE); i > 0; --i) {
                    store(table, seed, ++number);
                    state.acknowledge(number);
                }
                if (number - state.first() > random.nextInt(MOST_BEFORE_A_DROP)) {
                    state.enter(KillState.Phase.DROPPING);
                    table.drop();
                    state.setFirst(number + 1);
                }
                state.enter(KillState.Phase.CLOSING);
            }
        }
    }
}
