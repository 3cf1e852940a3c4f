import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboException;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.zip.CRC32;

/** What a scenario works on: tables of their own, copied from templates, and the objects that it opens. */
final class ShortageStage implements AutoCloseable {
    static final int MESSAGES = 5;
    static final int MANY_MESSAGES = 1005;  // a closed block and some more
    static final int[] TAGS = {11, 12, 13, 14, 15, 16, 17};
    static final int LARGE_SIZE = 20_000_000;  // of one text

    final Path directory;
    final TableConfiguration orders;
    final TableConfiguration many;
    final TableConfiguration large;
    final TableConfiguration sessionState;
    JNITboMessageTable table;
    JNITboMessageTable second;
    JNITboMessageTableIterator iterator;
    JNITboMessageWatcher watcher;
    JNITboSessionInfoTable session;
    byte[] bytes;  // what a use is to write

    ShortageStage(Path directory) {
        this.directory = directory;
        orders = configuration("orders");
        many = configuration("many");
        large = configuration("large");
        sessionState = TableConfiguration.builder("session", directory).sessionInfoTags(TAGS).build();
    }

    private TableConfiguration configuration(String name) {
        return TableConfiguration.builder(name, directory).stringFields("Symbol", "Account")
                .numericFields("OrderQty", "Price").build();
    }

    /** Makes the tables of which every other stage gets a copy. */
    void makeTables() throws IOException {
        Files.createDirectories(directory);
        fill(orders, MESSAGES);
        fill(many, MANY_MESSAGES);
        try (JNITboSessionInfoTable made = JNITboSessionInfoTable.open(sessionState, 1)) {
            made.write(TAGS, new long[] {1, 2, 3, 4, 5, 6, 7});
        }
    }

    private static void fill(TableConfiguration configuration, int messages) {
        try (JNITboMessageTable made = JNITboMessageTable.open(configuration, 1)) {
            for (int i = 1; i <= messages; ++i) {
                store(made, i);
            }
        }
    }

    void copyTables(Path templates) throws IOException {
        Files.createDirectories(directory);
        for (String name : new String[] {"orders", "many", "session"}) {
            Files.copy(templates.resolve(name), directory.resolve(name));
        }
    }

    static void store(JNITboMessageTable to, int number) {
        to.writeMessage(number, number, 0, number, 1000L + number, 'D', "AE", number % 2 == 0, false, "first", "second",
                "8=FIX.4.4\u00019=5\u000135=D\u000111=order number " + number + "\u0001",
                "58=\u00e9l\u00e9ment " + number, new String[] {"SYM" + number % 3, null},
                new double[] {number, number / 4.0});
    }

    JNITboMessageTable openTable(int mode) {
        table = JNITboMessageTable.open(orders, mode);
        return table;
    }

    JNITboMessageTable openMany() {
        table = JNITboMessageTable.open(many, 0);
        return table;
    }

    /** Makes a table of one message, whose last field and last but one are a large text and an empty one. */
    JNITboMessageTable makeLarge() {
        table = JNITboMessageTable.open(large, 1);
        storeLarge(largeBytes());
        return table;
    }

    static byte[] largeBytes() {
        byte[] bytes = new byte[LARGE_SIZE];
        for (int i = 0; i < bytes.length; ++i) {
            bytes[i] = (byte) ('A' + i % 26);
        }
        return bytes;
    }

    void storeLarge(byte[] wire) {
        table.writeMessage(1, 1, 0, 1, 1001, 'D', null, false, false, null, null, wire, 0, wire.length, null, 0, 0, null,
                0, 0, new String[2], new int[] {-1, -1}, new long[2], new double[2]);
    }

    /** An iterator at the table's first message. */
    JNITboMessageTableIterator openIterator() {
        return openIterator(openTable(0), orders);
    }

    JNITboMessageTableIterator openIterator(JNITboMessageTable of, TableConfiguration configuration) {
        iterator = of.getMessages(MessageQueryConditions.builder(configuration).build());
        if (!iterator.next()) {
            throw new IllegalStateException("the table is empty");
        }
        return iterator;
    }

    JNITboSessionInfoTable openSession(int mode) {
        session = JNITboSessionInfoTable.open(sessionState, mode);
        return session;
    }

    /** Everything that an iterator has, text for text. */
    static String rest(JNITboMessageTableIterator of) {
        StringBuilder all = new StringBuilder();
        while (of.next()) {
            all.append(of.getUniformMessageId()).append(' ').append(of.getMsgSeqNum()).append(' ')
                    .append(of.getMsgType()).append(' ').append(of.getWireMessage()).append(' ')
                    .append(of.getNonMetadataFields()).append(' ').append(of.getStringField(2)).append(' ')
                    .append(of.getStringField(3)).append(' ').append(of.getNumericFieldAsDouble(0)).append(' ')
                    .append(of.getNumericFieldAsDouble(1)).append('\n');
        }
        return all.toString();
    }

    static String text(byte[] bytes) {
        return bytes == null ? "null" : new String(bytes, StandardCharsets.ISO_8859_1);
    }

    /** A length and a checksum: enough to tell a large text by. */
    static String checksum(byte[] bytes) {
        CRC32 checksum = new CRC32();
        checksum.update(bytes);
        return bytes.length + " bytes of checksum " + checksum.getValue() + "; ";
    }

    /** What the tables hold in the end, found out with all the memory that there is. */
    String content() {
        StringBuilder all = new StringBuilder();
        for (String name : new String[] {"orders", "fresh"}) {
            if (Files.exists(directory.resolve(name))) {
                TableConfiguration configuration = configuration(name);
                try (JNITboMessageTable opened = JNITboMessageTable.open(configuration, 1)) {
                    all.append(rest(opened.getMessages(MessageQueryConditions.builder(configuration).build())));
                } catch (JNITboException damaged) {
                    all.append(damaged);
                }
            }
        }
        if (Files.exists(directory.resolve("large"))) {
            try (JNITboMessageTable opened = JNITboMessageTable.open(large, 1);
                    JNITboMessageTableIterator walk =
                            opened.getMessages(MessageQueryConditions.builder(large).build())) {
                while (walk.next()) {
                    all.append(checksum(walk.getWireMessageAsByteArray()));
                }
            } catch (JNITboException damaged) {
                all.append(damaged);
            }
        }
        for (String name : new String[] {"session", "fresh session"}) {
            if (Files.exists(directory.resolve(name))) {
                TableConfiguration configuration =
                        TableConfiguration.builder(name, directory).sessionInfoTags(TAGS).build();
                try (JNITboSessionInfoTable opened = JNITboSessionInfoTable.open(configuration, 1)) {
                    all.append(Arrays.toString(opened.read(TAGS)));
                } catch (JNITboException damaged) {
                    all.append(damaged);
                }
            }
        }
        return all.toString();
    }

    @Override
    public void close() {
        for (AutoCloseable opened : new AutoCloseable[] {watcher, iterator, second, table, session}) {
            try {
                if (opened != null) {
                    opened.close();
                }
            } catch (JNITboException failed) {
                // A table whose bookkeeping cannot be saved is freed all the same.
            } catch (Exception unexpected) {
                throw new IllegalStateException("a peer cannot be closed: " + opened + ": " + unexpected, unexpected);
            }
        }
    }
}
