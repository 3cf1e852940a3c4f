package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.IOException;
import java.util.function.BiConsumer;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** Which of the two MsgType arguments is stored, in the overload with texts and in that with bytes. */
class MsgTypeTest extends OnTables {
    private static BiConsumer<Long, Message> writer(boolean bytes) {
        return bytes ? Natives::writeBytes : Natives::writeTexts;
    }

    private String storedFor(boolean bytes, char character, String text) throws IOException {
        long handle = openForWriting();
        writer(bytes).accept(handle, Message.of(m -> {
            m.msgTypeChar = character;
            m.msgType = text;
        }));
        return theStored().msgTypeText();
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aTextOfOneCharacterWinsOverTheCharacter(boolean bytes) throws IOException {
        assertEquals("8", storedFor(bytes, 'D', "8"));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aTextOfFiveCharactersWinsOverTheCharacter(boolean bytes) throws IOException {
        assertEquals("UABCD", storedFor(bytes, 'D', "UABCD"));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aTextOfSixCharactersIsReplacedByTheCharacter(boolean bytes) throws IOException {
        assertEquals("D", storedFor(bytes, 'D', "UABCDE"));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aTextOfManyCharactersIsReplacedByTheCharacter(boolean bytes) throws IOException {
        assertEquals("D", storedFor(bytes, 'D', "U".repeat(100_000)));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void anEmptyTextWinsOverTheCharacter(boolean bytes) throws IOException {
        assertEquals("", storedFor(bytes, 'D', ""));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void aNullTextLeavesTheCharacter(boolean bytes) throws IOException {
        assertEquals("D", storedFor(bytes, 'D', null));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void lengthsAreCountedInBytesOfTheStoredForm(boolean bytes) throws IOException {
        assertEquals("D", storedFor(bytes, 'D', "\u20AC\u20AC"), "two characters of three bytes are too long");
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void twoCharactersOfFiveBytesWin(boolean bytes) throws IOException {
        assertEquals("\u00E2\u0082\u00AC\u00C3\u00A9", storedFor(bytes, 'D', "\u20AC\u00E9"));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void onlyTheLowByteOfTheCharacterIsStored(boolean bytes) throws IOException {
        assertEquals("A", storedFor(bytes, '\u0141', null));
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void theBytesBehindTheTypeAreZero(boolean bytes) throws IOException {
        storedFor(bytes, 'D', "AE");
        assertArrayEquals(new byte[] {'A', 'E', 0, 0, 0}, theStored().msgType());
    }

    @ParameterizedTest
    @ValueSource(booleans = {false, true})
    void theBytesBehindTheCharacterAreZero(boolean bytes) throws IOException {
        storedFor(bytes, 'D', "too long");
        assertArrayEquals(new byte[] {'D', 0, 0, 0, 0}, theStored().msgType());
    }
}
