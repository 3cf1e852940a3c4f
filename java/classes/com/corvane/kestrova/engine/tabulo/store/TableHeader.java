package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.jni.JNITboErrorCodes;
import java.io.ByteArrayInputStream;
import java.io.DataInputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * Reads a table's layout from the head of its file; docs/file_format.md has the byte map. Every number there is checked
 * against what is there before it is used.
 */
final class TableHeader {
    private static final byte[] SIGNATURE = "KestrovaDb".getBytes(StandardCharsets.US_ASCII);
    private static final byte[] MESSAGES = "MessageTable\0".getBytes(StandardCharsets.US_ASCII);
    private static final byte[] SESSION_INFO = "SessionInfoTable\0".getBytes(StandardCharsets.US_ASCII);
    private static final int GENERIC_HEADER = 19;
    private static final int SMALLEST_HEADER = 36;
    private static final int LARGEST_HEADER = 8096;
    private static final int VERSION_MAJOR = 5;
    private static final int VERSION_MINOR = 8;  // hundreds
    private static final int TAIL = 88;
    private static final int MESSAGES_PER_BLOCK = 1000;
    private static final int BUILT_IN_TEXTS = 4;
    private static final int LEADING_TEXTS = 2;
    /** Behind the header: the length word of the first block, and in its first frame what stands before the time. */
    private static final int BEFORE_TIME = 8 + 20;
    private static final int SMALLEST_FRAME = 55;

    private final Path file;
    private final ByteBuffer in;

    private TableHeader(Path file, ByteBuffer in) {
        this.file = file;
        this.in = in;
    }

    static Layout read(Path file) {
        ByteBuffer head = ByteBuffer.allocate(LARGEST_HEADER + BEFORE_TIME + Long.BYTES).order(ByteOrder.nativeOrder());
        try (FileChannel channel = open(file)) {
            while (head.hasRemaining() && channel.read(head) >= 0) {
                // until it is full, or the file's end
            }
        } catch (IOException failed) {
            throw TabuloException.of(JNITboErrorCodes.FILE_READ_ERROR, "I/O error: unable to read from a file", file,
                    failed.toString());
        }
        return new TableHeader(file, head.flip()).layout();
    }

    private static FileChannel open(Path file) {
        try {
            return FileChannel.open(file, StandardOpenOption.READ);
        } catch (IOException refused) {
            throw TabuloException.of(JNITboErrorCodes.FILE_OPEN_ERROR, "Unable to open a table file. The file might"
                    + " not exist or process might not have permission", file, refused.toString());
        }
    }

    private Layout layout() {
        int headerSize = genericHeader();
        typeName();
        need(4 * Integer.BYTES);
        int messagesPerBlock = in.getInt();
        int textCount = in.getInt();
        int summarisedCount = in.getInt();
        int numberCount = in.getInt();
        if (messagesPerBlock <= 0 || textCount < LEADING_TEXTS || textCount > BUILT_IN_TEXTS + Layout.MOST_TEXTS
                || summarisedCount < 0 || summarisedCount > LEADING_TEXTS + Layout.MOST_TEXTS || numberCount < 0
                || numberCount > Layout.MOST_NUMBERS) {
            throw corrupted("its layout is impossible: " + messagesPerBlock + " messages in a block, " + textCount
                    + " texts, " + summarisedCount + " of them summarised, " + numberCount + " numbers");
        }
        List<String> texts = names(Math.max(0, textCount - BUILT_IN_TEXTS));
        List<String> numbers = names(numberCount);
        if (in.position() + TAIL != headerSize) {
            throw corrupted("the names end at " + in.position() + " and the header of " + headerSize
                    + " bytes does not end " + TAIL + " bytes behind them");
        }
        boolean isOurs = messagesPerBlock == MESSAGES_PER_BLOCK && textCount >= BUILT_IN_TEXTS
                && summarisedCount == textCount - LEADING_TEXTS;
        if (!isOurs) {
            throw TabuloException.of(JNITboErrorCodes.CONFIG_MISMATCH_ERROR,
                    "Unable to open a table created with different configuration", file, messagesPerBlock
                    + " messages in a block, " + textCount + " texts, " + summarisedCount + " of them summarised");
        }
        return new Layout(texts, numbers, timeUnit(headerSize));
    }

    /** Checks the generic header; gives the size of the whole one. */
    private int genericHeader() {
        if (in.limit() < GENERIC_HEADER) {
            throw damaged(JNITboErrorCodes.FILE_SIZE_ERROR, "Size of a table file is less than expected",
                    "it has " + in.limit() + " bytes");
        }
        byte[] signature = new byte[SIGNATURE.length];
        in.get(signature);
        if (!Arrays.equals(signature, SIGNATURE)) {
            throw damaged(JNITboErrorCodes.SIGNATURE_ERROR, "Invalid table signature. A table might be corrupted or"
                    + " created with previous Tabulo version (or this is not a Tabulo table)", null);
        }
        int byteOrder = in.get();
        if (byteOrder != (ByteOrder.nativeOrder() == ByteOrder.LITTLE_ENDIAN ? 1 : 2)) {
            throw damaged(JNITboErrorCodes.BYTE_ORDER_ERROR,
                    "Unable to open a table file created on a system with a different byte order", null);
        }
        int major = Short.toUnsignedInt(in.getShort());
        int minor = Short.toUnsignedInt(in.getShort());
        if (major != VERSION_MAJOR || minor / 100 != VERSION_MINOR) {
            throw damaged(JNITboErrorCodes.VERSION_ERROR,
                    "Unable to open a table created by different version of Tabulo", "version " + major + "." + minor);
        }
        int headerSize = in.getInt();
        if (headerSize < SMALLEST_HEADER || headerSize > LARGEST_HEADER) {
            throw corrupted("its size of " + headerSize + " bytes is impossible");
        }
        if (headerSize > in.limit()) {
            throw cut();
        }
        return headerSize;
    }

    private void typeName() {
        byte[] type = sized("type name");
        if (Arrays.equals(type, SESSION_INFO)) {
            throw TabuloException.of(JNITboErrorCodes.TABLE_TYPE_ERROR, "Table type mismatch: trying to open a session"
                    + " info table as a message table or vice versa (or table might be corrupted)", file, null);
        }
        if (!Arrays.equals(type, MESSAGES)) {
            throw TabuloException.of(JNITboErrorCodes.TABLE_TYPE_ERROR, "Table type mismatch: trying to open a session"
                    + " info table as a message table or vice versa (or table might be corrupted)", file,
                    "its type is none");
        }
    }

    private List<String> names(int count) {
        List<String> names = new ArrayList<>();
        for (int i = 0; i < count; ++i) {
            names.add(name(sized("name")));
        }
        return names;
    }

    /** A name as Java gave it to the library: modified UTF-8 and a NUL; no bytes at all are an empty name. */
    private String name(byte[] bytes) {
        int length = bytes.length - 1;
        if (length < 0) {
            return "";
        }
        byte[] counted = new byte[Short.BYTES + length];
        ByteBuffer.wrap(counted).putShort((short) length).put(bytes, 0, length);
        try {
            String name = new DataInputStream(new ByteArrayInputStream(counted)).readUTF();
            if (bytes[length] == 0 && name.indexOf('\0') < 0) {
                return name;
            }
        } catch (IOException malformed) {
            // told below
        }
        throw corrupted("a name in it is no text");
    }

    /** A length of four bytes and as many bytes; none of them lies behind the largest header. */
    private byte[] sized(String what) {
        need(Integer.BYTES);
        long length = Integer.toUnsignedLong(in.getInt());
        if (length > in.remaining()) {
            throw damaged(JNITboErrorCodes.STREAM_NOT_ENOUGH_DATA_ERROR,
                    "Internal byte stream error: not enough data", "a " + what + " of " + length + " bytes");
        }
        byte[] bytes = new byte[(int) length];
        in.get(bytes);
        return bytes;
    }

    private TimeUnit timeUnit(int headerSize) {
        // The first frame of a table is where its writing began, whether or not its block is closed.
        int frame = headerSize + Long.BYTES;
        if (in.limit() < headerSize + BEFORE_TIME + Long.BYTES || in.getInt(frame) < SMALLEST_FRAME) {
            return TimeUnit.MILLISECONDS;
        }
        return Times.guess(in.getLong(headerSize + BEFORE_TIME));
    }

    private void need(int bytes) {
        if (in.remaining() < bytes) {
            throw cut();
        }
    }

    private TabuloException cut() {
        return damaged(JNITboErrorCodes.STREAM_NOT_ENOUGH_DATA_ERROR, "Internal byte stream error: not enough data",
                "the header is cut");
    }

    private TabuloException corrupted(String detail) {
        return damaged(JNITboErrorCodes.HEADER_CORRUPTED_ERROR, "Table's header is corrupted", detail);
    }

    private TabuloException damaged(int code, String text, String detail) {
        return TabuloException.of(code, text, file, detail);
    }
}
