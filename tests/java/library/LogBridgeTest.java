package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.Errors.assertFails;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.ValueSource;

/** The library's notes and warnings on their way to the host's loggers. */
class LogBridgeTest extends OnTables {
    private static final String PREFIX = "Tabulo/C WARNING: mt_getLastMessageId(): ";
    private static final String MESSAGE = "Connection message id offset (-1) out of bounds\n";

    private static RecordingFacility install() {
        RecordingFacility facility = new RecordingFacility();
        JNITboLibLoader.setLogFacility(facility);
        return facility;
    }

    /** Makes the library write one warning. */
    private static void warn(long handle) {
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> Natives.lastMessageId(handle, -1));
    }

    /** Opens a table that cannot be there, which warns with its path. */
    private void warnOfPath(String tableName) {
        assertFails(FILE_OPEN_ERROR, () -> open(provider().named(tableName), Natives.READ));
    }

    @Test
    void theFourLoggersAreAskedForOnceEachInTheirOrder() {
        assertEquals(List.of("debug", "info", "warning", "error"), install().asked);
    }

    @Test
    void aWarningIsTwoWritesWithTheNumberTwo() {
        long handle = openForWriting();
        RecordingFacility facility = install();
        warn(handle);
        assertEquals(List.of(new RecordingFacility.Piece("warning", 2, PREFIX),
                new RecordingFacility.Piece("warning", 2, MESSAGE)), facility.pieces);
        assertInstanceOf(String.class, facility.pieces.get(0).text());
    }

    @Test
    void aNoteIsTwoWritesToTheInfoLogger() {
        RecordingFacility facility = install();
        openForWriting();
        RecordingFacility.Piece first = facility.pieces.get(0);
        assertEquals(new RecordingFacility.Piece("info", 2, "Tabulo/C NOTE: + tableStorage_create(): "), first);
        assertTrue(((String) facility.pieces.get(1).text()).startsWith("owner="), "the message follows as its own");
        String notes = facility.notes();
        for (String name : List.of("+ tableStorage_create", "- tableStorage_create", "+ tableStorage_init",
                "- tableStorage_init")) {
            assertTrue(notes.contains("Tabulo/C NOTE: " + name + "(): "), () -> name + " is missing in " + notes);
        }
        assertFalse(notes.contains("DEBUG"), "debug lines never come to Java");
        assertEquals("", facility.text("debug") + facility.text("error"));
    }

    @Test
    void storingAndReadingMessagesLogsNothing() {
        long handle = openForWriting();
        RecordingFacility facility = install();
        writeNumbered(handle, 1, 10);
        read(handle, range(1, 10));
        assertEquals(List.of(), facility.pieces);
    }

    @Test
    void aSecondFacilityReplacesTheFirstAndAThirdTheSecond() {
        long handle = openForWriting();
        RecordingFacility first = install();
        RecordingFacility second = install();
        warn(handle);
        RecordingFacility third = install();
        warn(handle);
        assertEquals(List.of(), first.pieces);
        assertEquals(PREFIX + MESSAGE, second.warnings());
        assertEquals(PREFIX + MESSAGE, third.warnings());
    }

    @Test
    void theSameFacilityMayBeInstalledTwice() {
        long handle = openForWriting();
        RecordingFacility facility = install();
        JNITboLibLoader.setLogFacility(facility);
        warn(handle);
        assertEquals(PREFIX + MESSAGE, facility.warnings());
    }

    @Test
    void afterUninitLibraryNothingComesAndAFacilityMayBeInstalledAgain() {
        long handle = openForWriting();
        RecordingFacility facility = install();
        JNITboLibLoader.uninitLibrary();
        JNITboLibLoader.uninitLibrary();
        warn(handle);
        assertEquals(List.of(), facility.pieces);
        RecordingFacility again = install();
        warn(handle);
        assertEquals(PREFIX + MESSAGE, again.warnings());
    }

    private static ILogFacility withoutLogger(String missing) {
        return new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return level.equals(missing) ? null : super.logger(level);
            }
        };
    }

    private static ILogFacility throwingAt(String wrong) {
        return new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                if (level.equals(wrong)) {
                    throw new UnsupportedOperationException("thrown by a facility on purpose");
                }
                return super.logger(level);
            }
        };
    }

    @ParameterizedTest
    @ValueSource(strings = {"debug", "info", "warning", "error"})
    void aNullLoggerOrOneThatThrowsLeavesThePreviousFacility(String level) {
        long handle = openForWriting();
        RecordingFacility facility = install();
        JNITboLibLoader.setLogFacility((Object) withoutLogger(level));
        JNITboLibLoader.setLogFacility((Object) throwingAt(level));
        warn(handle);
        assertEquals(PREFIX + MESSAGE, facility.warnings());
    }

    /** Has the four methods but does not implement the interface. */
    static final class NoFacility {
        int calls;

        public ILogger debug() {
            ++calls;
            return (level, text) -> { };
        }

        public ILogger info() {
            return debug();
        }

        public ILogger warning() {
            return debug();
        }

        public ILogger error() {
            return debug();
        }
    }

    @Test
    void nullOrAnObjectThatIsNoFacilityLeavesThePreviousFacility() {
        long handle = openForWriting();
        RecordingFacility facility = install();
        JNITboLibLoader.setLogFacility((Object) null);
        JNITboLibLoader.setLogFacility("no facility");
        NoFacility noFacility = new NoFacility();
        JNITboLibLoader.setLogFacility(noFacility);
        warn(handle);
        assertEquals(PREFIX + MESSAGE, facility.warnings());
        assertEquals(0, noFacility.calls);
    }

    @Test
    void whatALoggerThrowsIsDropped() {
        long handle = openForWriting();
        int[] calls = new int[1];
        JNITboLibLoader.setLogFacility(new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return (argument, text) -> {
                    ++calls[0];
                    throw new AssertionError("thrown by a logger on purpose");
                };
            }
        });
        warn(handle);
        assertEquals(2, calls[0], "the message comes although the prefix was refused");
        write(handle, m -> m.wire = "x");
        assertEquals(1, read(handle, 0).timestamps().size(), "the library goes on");
    }

    @Test
    void aLoggerMayReplaceTheFacilityWhileItIsCalled() {
        long handle = openForWriting();
        RecordingFacility next = new RecordingFacility();
        RecordingFacility first = new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                ILogger recorder = super.logger(level);
                return (argument, text) -> {
                    JNITboLibLoader.setLogFacility(next);
                    System.gc();
                    recorder.write(argument, text);
                };
            }
        };
        JNITboLibLoader.setLogFacility(first);
        warn(handle);
        assertEquals(PREFIX, first.warnings());
        assertEquals(MESSAGE, next.warnings(), "the rest of the line goes where the next one goes");
        warn(handle);
        assertEquals(PREFIX, first.warnings());
        assertEquals(MESSAGE + PREFIX + MESSAGE, next.warnings());
    }

    @Test
    void aLoggerMayRemoveTheFacilityWhileItIsCalled() {
        long handle = openForWriting();
        RecordingFacility facility = new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                ILogger recorder = super.logger(level);
                return (argument, text) -> {
                    JNITboLibLoader.uninitLibrary();
                    System.gc();
                    recorder.write(argument, text);
                };
            }
        };
        JNITboLibLoader.setLogFacility(facility);
        warn(handle);
        warn(handle);
        assertEquals(PREFIX, facility.warnings(), "the rest of the line is dropped");
    }

    @Test
    void aLoggerMayUseTheLibraryWhileItIsCalled() {
        long handle = openForWriting();
        write(handle, m -> m.uniformId = 77);
        int[] found = new int[1];
        JNITboLibLoader.setLogFacility(new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return (argument, text) -> found[0] = Natives.lastUniform(handle);
            }
        });
        warn(handle);
        assertEquals(77, found[0]);
    }

    @Test
    void aLineOfThreeThousandCharactersIsCutTo2047() {
        RecordingFacility facility = install();
        String name = "n".repeat(3000);
        warnOfPath(name);
        String whole = "Unable to open a file " + directory + "/" + name + " in mode 0.\n";
        List<Object> texts = facility.pieces.stream().filter(piece -> piece.level().equals("warning"))
                .map(RecordingFacility.Piece::text).toList();
        assertTrue(texts.contains(whole.substring(0, 2047)), "the line's first 2047 characters come: " + texts);
    }

    @ParameterizedTest
    @ValueSource(ints = {0, 1, 2, 3, 4, 5})
    void aLineThatIsCutDoesNotEndInHalfACharacter(int shift) {
        RecordingFacility facility = install();
        String before = "Unable to open a file " + directory + "/";
        String name = "n".repeat(shift) + "\uD83D\uDE00".repeat(500);
        warnOfPath(name);
        int whole = (2047 - before.length() - shift) / 6;
        String expected = before + "n".repeat(shift) + "\uD83D\uDE00".repeat(whole);
        List<Object> texts = facility.pieces.stream().map(RecordingFacility.Piece::text).toList();
        assertTrue(texts.contains(expected), () -> "no line ends behind whole characters: " + texts);
    }

    @Test
    void everyCharacterOfAPathComesAsItWasGiven() {
        RecordingFacility facility = install();
        String name = "\u00FF\u20AC\uD83D\uDE00\uDC00x\uD800%s%n%d";
        warnOfPath(name);
        assertTrue(facility.warnings().contains("Unable to open a file " + directory + "/" + name + " in mode 0.\n"),
                facility::warnings);
    }

    @Test
    void aZeroCharacterInANameIsStoredAndShown() {
        RecordingFacility facility = install();
        warnOfPath("a\0b");
        assertTrue(facility.warnings().contains("/a\0b in mode 0.\n"), facility::warnings);
    }

    @Test
    void aLineIsDeliveredOnTheThreadThatLogs() throws InterruptedException {
        long handle = openForWriting();
        Thread[] caller = new Thread[1];
        JNITboLibLoader.setLogFacility(new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                return (argument, text) -> caller[0] = Thread.currentThread();
            }
        });
        Thread thread = new Thread(() -> warn(handle));
        thread.start();
        thread.join();
        assertEquals(thread, caller[0]);
    }

    @Test
    void aFacilityThatIsGivenAsOneIsCheckedAndAskedOnceForEachLogger() {
        RecordingFacility before = new RecordingFacility();
        JNITboLibLoader.setLogFacility(before);
        ILogFacility none = null;
        assertThrows(IllegalArgumentException.class, () -> JNITboLibLoader.setLogFacility(none));
        for (String level : List.of("debug", "info", "warning", "error")) {
            IllegalArgumentException refused = assertThrows(IllegalArgumentException.class,
                    () -> JNITboLibLoader.setLogFacility(withoutLogger(level)));
            assertTrue(refused.getMessage().contains(level), refused::getMessage);
        }
        long handle = openForWriting();
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> Natives.lastMessageId(handle, -1));
        assertTrue(before.warnings().contains("(-1) out of bounds"), "the one before it stays");
        int[] given = new int[1];
        RecordingFacility next = new RecordingFacility() {
            @Override
            ILogger logger(String level) {
                ++given[0];
                return super.logger(level);
            }
        };
        JNITboLibLoader.setLogFacility(next);
        assertEquals(4, given[0]);
        assertFails(INDEX_OUT_OF_BOUNDS_ERROR, () -> Natives.lastMessageId(handle, -2));
        assertTrue(next.warnings().contains("(-2) out of bounds"), next::warnings);
    }
}
