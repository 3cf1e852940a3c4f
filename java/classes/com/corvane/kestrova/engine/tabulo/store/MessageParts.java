package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import java.time.Instant;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.Optional;

/** What a message is made of before it is encoded, in slots that are used again for the next one. */
final class MessageParts {
    static final byte ABSENT = 0;
    static final byte DOUBLE = 1;
    static final byte WHOLE = 2;
    private static final int LONGEST_TYPE = 5;

    final Layout layout;
    final String[] texts;
    final byte[] numberTypes;
    /** The bits of doubles, and whole numbers as they are. */
    final long[] numbers;
    final Piece wire = new Piece();
    final Piece nonMetadata = new Piece();
    int uniformId;
    int connMsgId;
    int seqNum;
    int prevSeqNum;
    long timestamp;
    boolean hasTime;
    /** Null until it is given. */
    String type;
    boolean possDup;
    boolean outOfSequence;
    String text0;
    String text1;
    private final Map<String, Integer> textPlaces;
    private final Map<String, Integer> numberPlaces;

    MessageParts(Layout layout) {
        this.layout = layout;
        textPlaces = Layout.places(layout.texts());
        numberPlaces = Layout.places(layout.numbers());
        texts = new String[layout.texts().size()];
        numberTypes = new byte[layout.numbers().size()];
        numbers = new long[numberTypes.length];
    }

    void clear() {
        seqNum = 0;
        prevSeqNum = 0;
        hasTime = false;
        type = null;
        possDup = false;
        outOfSequence = false;
        text0 = null;
        text1 = null;
        wire.clear();
        nonMetadata.clear();
        Arrays.fill(texts, null);
        Arrays.fill(numberTypes, ABSENT);
    }

    void setTime(Instant time) {
        setTimestamp(Times.toStamp(time, layout.timeUnit()));
    }

    void setTimestamp(long stamp) {
        timestamp = stamp;
        hasTime = true;
    }

    void setType(String msgType) {
        int length = msgType.length();
        boolean isRight = length > 0 && length <= LONGEST_TYPE;
        for (int i = 0; isRight && i < length; ++i) {
            isRight = msgType.charAt(i) > 0 && msgType.charAt(i) < 0x80;
        }
        if (!isRight) {
            throw new IllegalArgumentException("\"" + msgType + "\" is no MsgType of one to five ASCII characters");
        }
        type = msgType;
    }

    void setText(String name, String value) {
        texts[place(textPlaces, name, "text")] = value;
    }

    void setNumber(String name, byte numberType, long bits) {
        int place = place(numberPlaces, name, "numeric");
        numberTypes[place] = numberType;
        numbers[place] = bits;
    }

    /** Takes what was said in a message: all but its ids, its numbers in the sequence, its time and its flags. */
    void setContent(StoredMessage message) {
        type = message.type();
        text0 = message.text0().orElse(null);
        text1 = message.text1().orElse(null);
        message.texts().forEach(this::setText);
        message.numbers().forEach((name, number) -> {
            boolean isWhole = number instanceof Long;
            setNumber(name, isWhole ? WHOLE : DOUBLE,
                    isWhole ? number.longValue() : Double.doubleToRawLongBits(number.doubleValue()));
        });
        byte[] bytes = message.wire();
        wire.set(bytes, 0, bytes.length);
        bytes = message.nonMetadata();
        if (bytes.length > 0) {
            nonMetadata.set(bytes, 0, bytes.length);
        }
    }

    /** The message as a reader of the table gets it; what has no time yet gets the present one. */
    StoredMessage message(String table) {
        Map<String, String> textsByName = new LinkedHashMap<>();
        Map<String, Number> numbersByName = new LinkedHashMap<>();
        for (int i = 0; i < texts.length; ++i) {
            StoredMessage.put(textsByName, layout.texts().get(i), texts[i]);
        }
        for (int i = 0; i < numbers.length; ++i) {
            if (numberTypes[i] != ABSENT) {
                StoredMessage.put(numbersByName, layout.numbers().get(i), numberTypes[i] == WHOLE
                        ? StoredMessage.number(numbers[i], numbers[i])
                        : StoredMessage.number(Double.longBitsToDouble(numbers[i]),
                                (long) Double.longBitsToDouble(numbers[i])));
            }
        }
        return new StoredMessage(table, uniformId, connMsgId, MessageClass.of(connMsgId), seqNum, prevSeqNum,
                Times.toInstant(timestamp, layout.timeUnit()), type, possDup, outOfSequence,
                Optional.ofNullable(text0), Optional.ofNullable(text1), textsByName, numbersByName, wire.copy(),
                nonMetadata.copy());
    }

    private static int place(Map<String, Integer> places, String name, String kind) {
        Integer place = places.get(name);
        if (place == null) {
            throw new IllegalArgumentException("the layout has no " + kind + " field " + name);
        }
        return place;
    }
}
