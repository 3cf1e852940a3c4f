package com.corvane.kestrova.engine.tabulo.jni;

import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.CONSISTENCY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.FILE_OPEN_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.INDEX_OUT_OF_BOUNDS_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.JNI_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_DATA_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NO_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NULL_POINTER_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.NUMERIC_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.OUT_OF_MEMORY_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_COUNT_MISMATCH_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.STRING_FIELDS_LIMIT_ERROR;
import static com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes.WRONG_PARAMETER_ERROR;

import java.lang.reflect.Array;
import java.util.Arrays;
import java.util.List;
import java.util.Set;
import java.util.stream.IntStream;

/**
 * What each entry point must answer to any arguments, told from the arguments alone: the error codes that are right, 0
 * for no error. The checks stand in the order in which the library must make them.
 */
final class ExpectedCodes {
    private static final int HUGE = 1 << 27;  // elements that the library may have no memory for
    private static final int SESSION_TAGS = 32;
    private static final Set<Integer> KNOWN_TAGS = Set.of(1, 2, 3, 4, 5, 6);

    private final List<Argument> arguments;
    private final List<Object> values;

    private ExpectedCodes(List<Argument> arguments, List<Object> values) {
        this.arguments = arguments;
        this.values = values;
    }

    static Set<Integer> of(EntryPoint entryPoint, List<Argument> arguments, List<Object> values) {
        return new ExpectedCodes(arguments, values).of(entryPoint);
    }

    private Set<Integer> of(EntryPoint entryPoint) {
        return switch (entryPoint.key()) {
            // Whatever is given to these, no error of theirs reaches Java.
            case "JNITboLibLoader.initLibrary/0", "JNITboLibLoader.uninitLibrary/0", "JNITboLibLoader.setLogFacility/1",
                    "JNITboLibLoader.setDoSyncToDisk/3" -> one(NO_ERROR);
            case "JNITboSessionInfoTable.initializeNative/2", "JNITboMessageTable.initializeNative/2" -> one(opened());
            case "JNITboSessionInfoTable.writeFieldsNative/4" -> one(sessionWritten());
            case "JNITboSessionInfoTable.readFieldsNative/4" -> one(sessionRead());
            case "JNITboMessageTable.writeMessage/16" -> one(textsWritten());
            case "JNITboMessageTable.writeMessage/25" -> one(bytesWritten());
            case "JNITboMessageTable.writeMessage/4" -> frameWritten();
            case "JNITboMessageTable.readMessages/4" -> one(messagesRead());
            case "JNITboMessageTable.getMessages/2" -> one(first(code(0), code(1)));
            case "JNITboMessageTable.getLastMessageId/2" ->
                one(first(code(0), number(1) < 0 ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR));
            case "JNITboMessageTable.getLastGoodMsgSeqNum/3" -> one(first(code(0), heldTimestamp()));
            case "JNITboMessageTableIterator.getStringField/2" -> one(stringAsked());
            case "JNITboMessageTableIterator.getNumericFieldAsLong/2",
                    "JNITboMessageTableIterator.getNumericFieldAsDouble/2" -> one(numberAsked());
            case "JNITboMessageWatcher.startWatching/4" -> watched();
            default -> everythingElse(entryPoint);
        };
    }

    /** Those whose handle or only argument decides alone. */
    private Set<Integer> everythingElse(EntryPoint entryPoint) {
        boolean isHandleAlone = values.size() == 1;
        if (!isHandleAlone && !entryPoint.key().equals("JNITboMessageTable.getPendingMsgSeqNum/3")) {
            throw new AssertionError("nothing is known about " + entryPoint);
        }
        boolean isWriting = entryPoint.key().equals("JNITboMessageTable.dropNative/1");
        return one(isWriting || !isReader() ? code(0) : NO_ERROR);
    }

    private static Set<Integer> one(int code) {
        return Set.of(code);
    }

    /** The first code that is an error. */
    private static int first(int... codes) {
        return IntStream.of(codes).filter(code -> code != NO_ERROR).findFirst().orElse(NO_ERROR);
    }

    private int code(int argument) {
        return arguments.get(argument).code();
    }

    private boolean isReader() {
        return arguments.get(0).name().equals("a reader");
    }

    /** The error of handle 0; a reader's own error comes after all others. */
    private int zeroHandle() {
        return isReader() ? NO_ERROR : code(0);
    }

    private int readOnly() {
        return isReader() ? code(0) : NO_ERROR;
    }

    private int number(int argument) {
        return (int) values.get(argument);
    }

    /** The length of an array, or `ofNull`. */
    private int length(int argument, int ofNull) {
        return values.get(argument) == null ? ofNull : Array.getLength(values.get(argument));
    }

    private int opened() {
        int mode = number(1);
        int ofMode = mode == 0 ? FILE_OPEN_ERROR : mode == 1 || mode == 2 ? NO_ERROR : WRONG_PARAMETER_ERROR;
        return first(code(0), ofMode);
    }

    /** The number of tags that are used, -1 for a count that the array has not. */
    private int usedTags() {
        int length = length(2, -1);
        return number(1) < 0 ? length : number(1) > length ? -1 : number(1);
    }

    private boolean areKnown(int used) {
        return Arrays.stream((int[]) values.get(2)).limit(used).allMatch(KNOWN_TAGS::contains);
    }

    private int sessionWritten() {
        int used = usedTags();
        boolean cannotBeCopied = used < 0 || used > length(3, -1);
        return first(code(0), cannotBeCopied ? JNI_ERROR : NO_ERROR,
                !cannotBeCopied && !areKnown(used) ? WRONG_PARAMETER_ERROR : NO_ERROR);
    }

    private int sessionRead() {
        int used = usedTags();
        return first(code(0), used < 0 ? JNI_ERROR : NO_ERROR,
                used > SESSION_TAGS ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR,
                used >= 0 && !areKnown(used) ? NO_DATA_ERROR : NO_ERROR,
                values.get(3) == null ? NULL_POINTER_ERROR : NO_ERROR, used > length(3, 0) ? JNI_ERROR : NO_ERROR);
    }

    private int textsWritten() {
        int strings = length(14, 0);
        int numbers = length(15, 0);
        return first(zeroHandle(), numbers > 16 ? NUMERIC_FIELDS_LIMIT_ERROR : NO_ERROR,
                strings > 12 ? STRING_FIELDS_LIMIT_ERROR : NO_ERROR,
                strings != MisuseTables.FIELDS ? STRING_FIELDS_COUNT_MISMATCH_ERROR : NO_ERROR,
                numbers > MisuseTables.FIELDS ? NUMERIC_FIELDS_COUNT_MISMATCH_ERROR : NO_ERROR, readOnly());
    }

    private int typeMap() {
        int[] map = (int[]) values.get(22);
        if (map == null || map.length < MisuseTables.FIELDS) {
            return NUMERIC_FIELDS_COUNT_MISMATCH_ERROR;
        }
        long longs = length(23, 0) > 16 ? 0 : length(23, 0);
        long doubles = length(24, 0) > 16 ? 0 : length(24, 0);
        boolean isInside = Arrays.stream(map).limit(MisuseTables.FIELDS)
                .allMatch(type -> type <= longs && -(long) type <= doubles);
        return isInside ? NO_ERROR : INDEX_OUT_OF_BOUNDS_ERROR;
    }

    private boolean isRange(int array) {
        long offset = number(array + 1);
        long length = number(array + 2);
        return values.get(array) == null || offset >= 0 && length >= 0 && offset + length <= length(array, 0);
    }

    private int bytesWritten() {
        boolean areRanges = isRange(12) && isRange(15) && isRange(18);
        return first(zeroHandle(), typeMap(),
                length(21, MisuseTables.FIELDS) < MisuseTables.FIELDS ? STRING_FIELDS_COUNT_MISMATCH_ERROR : NO_ERROR,
                areRanges ? NO_ERROR : JNI_ERROR, readOnly());
    }

    private Set<Integer> frameWritten() {
        int ofRange = first(zeroHandle(), values.get(1) == null ? NULL_POINTER_ERROR : NO_ERROR,
                isRange(1) ? NO_ERROR : JNI_ERROR);
        if (ofRange != NO_ERROR) {
            return one(ofRange);
        }
        boolean isFrame = arguments.get(1).name().equals("a frame") && number(2) == 0;
        int frameLength = MisuseTables.frame().length;
        if (isFrame) {
            return one(number(3) >= frameLength ? readOnly() : NO_DATA_ERROR);
        }
        return Set.of(NO_DATA_ERROR, CONSISTENCY_ERROR);
    }

    private int messagesRead() {
        int used = number(2) < 0 ? length(1, -1) : number(2);
        return first(code(0), code(3) == NULL_POINTER_ERROR ? NULL_POINTER_ERROR : NO_ERROR,
                used < 0 || used > length(1, -1) ? JNI_ERROR : NO_ERROR, code(3));
    }

    /** A holder is asked only for a message that is there. */
    private int heldTimestamp() {
        long newest = Message.numbered(MisuseTables.HELD_MESSAGES).timestamp;
        return (long) values.get(1) <= newest ? code(2) : NO_ERROR;
    }

    private boolean isOnMessage() {
        return arguments.get(0).name().equals("an iterator on a message");
    }

    private int stringAsked() {
        int slots = isOnMessage() ? MisuseTables.STRING_SLOTS : 1;
        return first(code(0), number(1) < 0 || number(1) >= slots ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR);
    }

    private int numberAsked() {
        int slots = MisuseTables.NUMERIC_SLOTS - (isOnMessage() ? 0 : MisuseTables.FIELDS);
        return first(code(0), number(1) < 0 || number(1) >= slots ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR);
    }

    private Set<Integer> watched() {
        int count = number(1);
        int length = length(2, -1);
        int tables = arguments.get(0).name().equals("a watcher") ? 1 : 0;
        int code = first(length < 0 && count > 0 ? NULL_POINTER_ERROR : NO_ERROR,
                count < 0 || length >= 0 && count > length ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR, code(0),
                count < tables ? INDEX_OUT_OF_BOUNDS_ERROR : NO_ERROR);
        if (code == NO_ERROR) {
            // The receiver is called in any case, at the latest when nothing is new.
            return one(arguments.get(arguments.size() - 1).code());
        }
        return count > HUGE ? Set.of(code, OUT_OF_MEMORY_ERROR) : one(code);
    }
}
