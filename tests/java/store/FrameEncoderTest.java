package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.store.FrameEncoder;
import com.corvane.kestrova.engine.tabulo.store.Layout;
import java.io.IOException;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.Test;

/** The frames that are made in Java, beside those that the library makes of the same messages. */
class FrameEncoderTest extends OnStores {
    private static final int TABLES = 40;
    private static final int MESSAGES = 60;
    private static final String[] TYPES = {"D", "8", "AE", "UABC", "UABCD", "0"};

    private final Random random = new Random(TestRun.seed());

    private static List<String> names(String kind, int count) {
        List<String> names = new ArrayList<>();
        for (int i = 0; i < count; ++i) {
            names.add(kind + i);
        }
        return names;
    }

    /** Nothing, a text of any characters, unpaired surrogates and zero characters among them, or a plain one. */
    private String text() {
        int kind = random.nextInt(4);
        if (kind == 0) {
            return null;
        }
        int length = random.nextInt(random.nextInt(20) == 0 ? 3000 : 30);
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < length; ++i) {
            text.append((char) (kind == 1 ? random.nextInt(0x10000) : kind == 2 ? random.nextInt(0x100)
                    : 'A' + random.nextInt(26)));
        }
        return text.toString();
    }

    private byte[] bytes() {
        byte[] bytes = new byte[random.nextInt(random.nextInt(20) == 0 ? 5000 : 60)];
        random.nextBytes(bytes);
        return bytes;
    }

    /** The numbers of a message, in the three forms that the encoder and the two overloads take. */
    private final class Numbers {
        private final int[] types;
        private final long[] longs = new long[16];
        private final double[] doubles = new double[16];
        private final int given;

        Numbers(int count, boolean doublesAlone) {
            types = new int[count];
            // The overload with text can leave out the last numbers alone.
            given = random.nextInt(count + 1);
            for (int i = 0; i < count; ++i) {
                int kind = random.nextInt(3);
                types[i] = doublesAlone ? i < given ? -1 - i : 0 : kind == 0 ? 0 : kind == 1 ? i + 1 : -1 - i;
                longs[i] = random.nextLong();
                doubles[i] = random.nextInt(10) == 0 ? Double.NaN : Double.longBitsToDouble(random.nextLong());
            }
        }

        void give(FrameEncoder encoder, Layout layout) {
            for (int i = 0; i < types.length; ++i) {
                if (types[i] > 0) {
                    encoder.number(layout.numbers().get(i), longs[i]);
                } else if (types[i] < 0) {
                    encoder.number(layout.numbers().get(i), doubles[i]);
                }
            }
        }

        double[] first() {
            return Arrays.copyOf(doubles, given);
        }
    }

    private void storeBoth(FrameEncoder encoder, Layout layout, int id, JNITboMessageTable made,
            JNITboMessageTable ours) {
        boolean isText = random.nextBoolean();
        Numbers numbers = new Numbers(layout.numbers().size(), isText);
        String[] texts = new String[layout.texts().size()];
        int connMsgId = random.nextInt();
        int seqNum = random.nextInt();
        int prevSeqNum = random.nextInt();
        long time = random.nextLong();
        String type = TYPES[random.nextInt(TYPES.length)];
        boolean possDup = random.nextBoolean();
        boolean outOfSequence = random.nextBoolean();
        String text0 = text();
        String text1 = text();
        encoder.begin(id, connMsgId).seqNum(seqNum).prevSeqNum(prevSeqNum).timestamp(time).type(type)
                .possDup(possDup).outOfSequence(outOfSequence).text0(text0).text1(text1);
        for (int i = 0; i < texts.length; ++i) {
            texts[i] = text();
            encoder.text(layout.texts().get(i), texts[i]);
        }
        numbers.give(encoder, layout);
        if (isText) {
            String wire = text();
            if (wire != null) {
                encoder.wire(wire);
            }
            encoder.storeIn(ours);
            made.writeMessage(id, seqNum, prevSeqNum, connMsgId, time, '\0', type, possDup, outOfSequence, text0, text1,
                    wire, null, texts, numbers.first());
        } else {
            byte[] wire = bytes();
            int offset = random.nextInt(wire.length + 1);
            int length = random.nextInt(wire.length - offset + 1);
            byte[] other = bytes();
            encoder.wire(wire, offset, length).nonMetadata(other, 0, other.length);
            encoder.storeIn(ours);
            made.writeMessage(id, seqNum, prevSeqNum, connMsgId, time, '\0', type, possDup, outOfSequence, text0, text1,
                    wire, offset, length, null, 0, 0, other, 0, other.length, texts, numbers.types, numbers.longs,
                    numbers.doubles);
        }
    }

    @Test
    void theFramesOfRandomMessagesAreThoseOfTheLibraryByteForByte() throws IOException {
        for (int run = 0; run < TABLES * TestRun.effort(); ++run) {
            Layout layout = new Layout(names("text", random.nextInt(13)), names("number", random.nextInt(17)),
                    TimeUnit.MILLISECONDS);
            FrameEncoder encoder = new FrameEncoder(layout);
            String made = "made" + run;
            String ours = "ours" + run;
            try (JNITboMessageTable first = open(made, layout); JNITboMessageTable second = open(ours, layout)) {
                for (int id = 1; id <= MESSAGES; ++id) {
                    storeBoth(encoder, layout, id, first, second);
                }
            }
            assertEquals(-1, Files.mismatch(directory.resolve(made), directory.resolve(ours)),
                    () -> "the tables of " + layout + " differ");
            assertTrue(Files.size(directory.resolve(made)) > MESSAGES * 39L);
        }
        TestRun.figure("encoder", "random messages encoded in Java and by the library",
                (long) TABLES * TestRun.effort() * MESSAGES);
    }

    private JNITboMessageTable open(String name, Layout layout) {
        TableConfiguration configuration = TableConfiguration.builder(name, directory)
                .stringFields(layout.texts().toArray(String[]::new))
                .numericFields(layout.numbers().toArray(String[]::new)).build();
        return JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE);
    }

    @Test
    void aMessageLeavesNothingBehindInTheNextOne() {
        FrameEncoder encoder = new FrameEncoder(ORDERS);
        byte[] wire = {1, 2, 3};
        encoder.begin(7, 8).type("D").timestamp(9);
        int length = encoder.encode();
        byte[] plain = Arrays.copyOf(encoder.frame(), length);
        encoder.begin(1, 2).seqNum(3).prevSeqNum(4).timestamp(5).type("UABCD").possDup(true).outOfSequence(true)
                .text0("a").text1("b").text("Symbol", "c").number("Price", 6.5).number("OrderQty", 7)
                .wire(wire, 0, 3).nonMetadata(wire, 0, 3).encode();
        encoder.begin(7, 8).type("D").timestamp(9);
        assertArrayEquals(plain, Arrays.copyOf(encoder.frame(), encoder.encode()));
    }

    @Test
    void whatCannotBeEncodedIsRefused() {
        FrameEncoder encoder = new FrameEncoder(ORDERS).begin(1, 1);
        assertThrows(IllegalStateException.class, encoder::encode, "a message without a type");
        for (String type : List.of("", "UABCDE", "\u00e9", "\0")) {
            assertThrows(IllegalArgumentException.class, () -> encoder.type(type), "the type \"" + type + "\"");
        }
        assertThrows(IllegalArgumentException.class, () -> encoder.text("Price", "1"), "a number is no text");
        assertThrows(IllegalArgumentException.class, () -> encoder.number("Symbol", 1), "a text is no number");
        assertThrows(IndexOutOfBoundsException.class, () -> encoder.wire(new byte[3], 2, 2));
        assertThrows(IndexOutOfBoundsException.class, () -> encoder.wire(new byte[3], -1, 2));
    }
}
