import com.corvane.kestrova.engine.tabulo.IKSVTboMessageListener;
import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.MessageQueryConditionsBuilder;
import com.corvane.kestrova.engine.tabulo.MessageStringField;
import com.corvane.kestrova.engine.tabulo.NumericFieldFilter;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.TimestampHolder;
import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import com.corvane.kestrova.engine.tabulo.jni.JNITboSessionInfoTable;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.function.Consumer;
import java.util.function.Function;
import java.util.function.UnaryOperator;

/** Every entry point in its ordinary use, each getter, each callback, each way to an error. */
final class ShortageScenarios {
    /**
     * One use of the library.
     *
     * @param name what it is
     * @param prepare opens what the use needs
     * @param operate the use; gives what came of it as text
     */
    record Scenario(String name, Consumer<ShortageStage> prepare, Function<ShortageStage, String> operate) {
    }

    private static final Consumer<ShortageStage> NOTHING = stage -> { };
    private static final Consumer<ShortageStage> WRITER = stage -> stage.openTable(1);
    private static final Consumer<ShortageStage> READER = stage -> stage.openTable(0);
    private static final Consumer<ShortageStage> ITERATOR = ShortageStage::openIterator;
    private static final Consumer<ShortageStage> SESSION = stage -> stage.openSession(1);
    private static final Consumer<ShortageStage> WATCHER =
            stage -> stage.watcher = JNITboMessageWatcher.open(stage.openTable(0));

    private final List<Scenario> all = new ArrayList<>();

    static List<Scenario> all() {
        ShortageScenarios made = new ShortageScenarios();
        made.addLibrary();
        made.addSessions();
        made.addOpening();
        made.addWriting();
        made.addReading();
        made.addQueries();
        made.addGetters();
        made.addLookups();
        made.addWatches();
        return made.all;
    }

    /** The uses that hand over an array, with arrays of {@value ShortageStage#LARGE_SIZE} bytes. */
    static List<Scenario> large() {
        ShortageScenarios made = new ShortageScenarios();
        made.addLarge();
        return made.all;
    }

    private void add(String name, Consumer<ShortageStage> prepare, Function<ShortageStage, String> operate) {
        all.add(new Scenario(name, prepare, operate));
    }

    private void addDoing(String name, Consumer<ShortageStage> prepare, Consumer<ShortageStage> operate) {
        add(name, prepare, stage -> {
            operate.accept(stage);
            return "done";
        });
    }

    private void addLibrary() {
        addDoing("initLibrary", NOTHING, stage -> JNITboLibLoader.initLibrary());
        addDoing("setDoSyncToDisk", NOTHING, stage -> JNITboLibLoader.setDoSyncToDisk(false, 0, 0));
        // Whether it is installed is prescribed to be silent; that no harm comes of it is what is tried.
        addDoing("setLogFacility", NOTHING, stage -> JNITboLibLoader.setLogFacility((Object) new Recorder()));
        addDoing("uninitLibrary", NOTHING, stage -> JNITboLibLoader.uninitLibrary());
        add("a warning to a facility", stage -> {
            JNITboLibLoader.setLogFacility(new Recorder());
            stage.openTable(1);
        }, stage -> "id " + stage.table.getLastMessageId(-1));
    }

    private void addSessions() {
        addDoing("a session table opened", NOTHING, stage -> stage.openSession(1));
        addDoing("a session table opened for reading", NOTHING, stage -> stage.openSession(0));
        // Read back with the same tags in the end: it must not have been made with the default ones.
        addDoing("a session table made", NOTHING, stage -> stage.session = JNITboSessionInfoTable.open(TableConfiguration
                .builder("fresh session", stage.directory).sessionInfoTags(ShortageStage.TAGS).build(), 1));
        addDoing("a session table with other tags", NOTHING, stage -> stage.session = JNITboSessionInfoTable
                .open(TableConfiguration.builder("session", stage.directory).sessionInfoTags(1, 99).build(), 1));
        addDoing("a session table with too many tags", NOTHING, stage -> stage.session = JNITboSessionInfoTable
                .open(TableConfiguration.builder("session", stage.directory).sessionInfoTags(new int[33]).build(), 1));
        addDoing("a session table written", SESSION, stage -> stage.session.write(new int[] {12, 14}, new long[] {8, 9}));
        addDoing("a session table written with an unknown tag", SESSION, stage -> stage.session.write(99, 9));
        add("a session table read", SESSION, stage -> Arrays.toString(stage.session.read(ShortageStage.TAGS)));
        add("a session table read with an unknown tag", SESSION, stage -> Arrays.toString(stage.session.read(11, 99)));
        addDoing("a session table dropped", SESSION, stage -> stage.session.drop());
        addDoing("a session table closed", SESSION, stage -> stage.session.close());
    }

    private static void openWith(ShortageStage stage, String name, UnaryOperator<TableConfiguration.Builder> fields,
            int mode) {
        stage.table = JNITboMessageTable.open(fields.apply(TableConfiguration.builder(name, stage.directory)).build(),
                mode);
    }

    private void addOpening() {
        addDoing("a table opened for reading", NOTHING, stage -> stage.openTable(0));
        addDoing("a table opened for writing", NOTHING, stage -> stage.openTable(1));
        addDoing("a table made", NOTHING, stage -> openWith(stage, "fresh", fields -> fields
                .stringFields("Symbol", "Account").numericFields("OrderQty", "Price").replicas("/nowhere/"), 1));
        addDoing("a table that is missing", NOTHING, stage -> openWith(stage, "missing", fields -> fields, 0));
        addDoing("a table with another number of fields", NOTHING,
                stage -> openWith(stage, "orders", fields -> fields.stringFields("Symbol"), 1));
        addDoing("a table with other names of fields", NOTHING, stage -> openWith(stage, "orders",
                fields -> fields.stringFields("Symbol", "Other").numericFields("OrderQty", "Price"), 1));
        addDoing("a table with too many fields", NOTHING,
                stage -> openWith(stage, "fresh", fields -> fields.numericFields("a,".repeat(17).split(",")), 1));
        addDoing("a table opened by a provider without methods", NOTHING,
                stage -> stage.table = JNITboMessageTable.open(new Object(), 1));
        addDoing("a table opened for a second writer", WRITER,
                stage -> stage.second = JNITboMessageTable.open(stage.orders, 1));
        addDoing("a session table opened as a message table", NOTHING,
                stage -> openWith(stage, "session", fields -> fields, 0));
        addDoing("a table closed", WRITER, stage -> stage.table.close());
        addDoing("a table with an iterator closed", ITERATOR, stage -> stage.table.close());
    }

    private static void storeBytes(JNITboMessageTable to, String[] strings) {
        byte[] wire = "8=FIX.4.4\u000111=bytes\u0001".getBytes(StandardCharsets.ISO_8859_1);
        to.writeMessage(7, 7, 0, 7, 1007, 'D', null, false, false, "first", null, wire, 0, 5, wire, 5, wire.length - 5,
                wire, 2, 3, strings, new int[] {1, -1}, new long[] {7}, new double[] {0.5});
    }

    private void addWriting() {
        addDoing("a message written as text", WRITER, stage -> ShortageStage.store(stage.table, 6));
        addDoing("a long message written as text", WRITER, stage -> stage.table.writeMessage(6, 6, 0, 6, 1006, 'D', null,
                false, false, null, null, "\u20ac".repeat(5000), "x".repeat(5000), new String[2], null));
        addDoing("a message written as bytes", WRITER, stage -> storeBytes(stage.table, new String[] {"SYM", "ACC"}));
        addDoing("a message of bytes without texts", WRITER, stage -> storeBytes(stage.table, null));
        addDoing("a message with too many numbers", WRITER, stage -> stage.table.writeMessage(6, 6, 0, 6, 1006, 'D', null,
                false, false, null, null, "wire", null, new String[2], new double[17]));
        addDoing("a message with too few texts", WRITER, stage -> stage.table.writeMessage(6, 6, 0, 6, 1006, 'D', null,
                false, false, null, null, "wire", null, new String[1], null));
        addDoing("a raw message", WRITER, stage -> stage.table.writeMessage(new byte[100], 0, 100));
        addDoing("a raw message out of its array", WRITER, stage -> stage.table.writeMessage(new byte[10], 5, 100));
        addDoing("a message written to a reader", READER, stage -> ShortageStage.store(stage.table, 6));
        addDoing("the message that fills a block", stage -> {
            stage.table = JNITboMessageTable.open(stage.orders, 1);
            for (int i = ShortageStage.MESSAGES + 1; i < 1000; ++i) {
                ShortageStage.store(stage.table, i);
            }
        }, stage -> ShortageStage.store(stage.table, 1000));
        addDoing("a table dropped", WRITER, stage -> stage.table.drop());
    }

    private static IKSVTboMessageListener into(StringBuilder text, int answer) {
        return (count, timestamps, wires, others) -> {
            text.append(count).append(Arrays.toString(timestamps));
            for (int i = 0; i < count; ++i) {
                text.append(ShortageStage.text(wires[i])).append(ShortageStage.text(others[i]));
            }
            return answer;
        };
    }

    private static int[] ids(int count) {
        int[] ids = new int[count];
        Arrays.setAll(ids, i -> i + 1);
        return ids;
    }

    private void addReading() {
        add("messages read", WRITER, stage -> {
            StringBuilder text = new StringBuilder();
            stage.table.readMessages(ids(4), into(text, 0));
            return text.toString();
        });
        add("messages read in batches", ShortageStage::openMany, stage -> {
            StringBuilder text = new StringBuilder();
            stage.table.readMessages(ids(ShortageStage.MANY_MESSAGES), into(text, 0));
            return text.toString();
        });
        add("messages read to a listener that stops", ShortageStage::openMany, stage -> {
            StringBuilder text = new StringBuilder();
            stage.table.readMessages(ids(ShortageStage.MANY_MESSAGES), into(text, 1));
            return text.toString();
        });
        addDoing("messages read to a listener that throws", READER,
                stage -> stage.table.readMessages(ids(4), (count, timestamps, wires, others) -> {
                    throw new IllegalStateException("thrown by a listener on purpose");
                }));
        addDoing("messages read without ids", READER, stage -> stage.table.readMessages(null, into(new StringBuilder(), 0)));
        addDoing("messages read without a listener", READER, stage -> stage.table.readMessages(ids(1), null));
    }

    private void addQuery(String name, UnaryOperator<MessageQueryConditionsBuilder> conditions) {
        add(name, ShortageStage::openMany, stage -> {
            stage.iterator =
                    stage.table.getMessages(conditions.apply(MessageQueryConditions.builder(stage.many)).build());
            StringBuilder found = new StringBuilder();
            while (stage.iterator.next()) {
                found.append(stage.iterator.getUniformMessageId()).append(' ');
            }
            return found.toString();
        });
    }

    /** Conditions that are not ours. */
    public static final class OtherConditions {
        public Boolean getIterateBackward() {
            throw new IllegalStateException("thrown by conditions on purpose");
        }
    }

    private void addQueries() {
        addQuery("a query for all", b -> b);
        addQuery("a query backward", MessageQueryConditionsBuilder::backward);
        addQuery("a query for numbers of messages", b -> b.seqNumRange(2, 3));
        addQuery("a query for ids", b -> b.messageIdRange(2, 4));
        addQuery("a query for classes", b -> b.messageClasses(MessageClass.APP_TO, MessageClass.ADMIN_FROM));
        addQuery("a query without types", b -> b.excludeMsgTypes("AE", "8"));
        addQuery("a query for times", b -> b.startingTime(1002).endingTime(1004));
        addQuery("a query for duplicates", b -> b.possDup(true));
        addQuery("a query for one text", b -> b.string("Symbol", StringFieldFilter.anyOf("SYM1")));
        addQuery("a query for a range of texts", b -> b.string("Symbol", StringFieldFilter.between("SYM0", "SYM2")));
        addQuery("a query for absent texts", b -> b.string("Account", StringFieldFilter.anyOf("x").orAbsent()));
        addQuery("a query without case", b -> b.string(MessageStringField.BUILT_IN_0,
                StringFieldFilter.anyOf("FIRST").ignoringCase()));
        addQuery("a query for one number", b -> b.numeric("OrderQty", NumericFieldFilter.anyOfDoubles(3)));
        addQuery("a query for an interval of numbers",
                b -> b.numeric("Price", NumericFieldFilter.betweenDoubles(0.25, 1)));
        addQuery("a query for one long", b -> b.numeric("OrderQty", NumericFieldFilter.anyOfLongs(2, 4)));
        addQuery("a query for an interval of longs",
                b -> b.numeric("OrderQty", NumericFieldFilter.betweenLongs(1, 4).orAbsent()));
        addDoing("a query with conditions that throw", READER,
                stage -> stage.iterator = stage.table.getMessages(new OtherConditions()));
        addDoing("a query without conditions", READER, stage -> stage.iterator = stage.table.getMessages(null));
    }

    private void addGetter(String name, Function<JNITboMessageTableIterator, Object> getter) {
        add(name, ITERATOR, stage -> String.valueOf(getter.apply(stage.iterator)));
    }

    private void addGetters() {
        addGetter("getMsgType", JNITboMessageTableIterator::getMsgType);
        addGetter("getWireMessage", JNITboMessageTableIterator::getWireMessage);
        addGetter("getWireMessageAsByteArray", i -> ShortageStage.text(i.getWireMessageAsByteArray()));
        addGetter("getNonMetadataFields", JNITboMessageTableIterator::getNonMetadataFields);
        addGetter("getNonMetadataFieldsAsByteArray", i -> ShortageStage.text(i.getNonMetadataFieldsAsByteArray()));
        addGetter("getStringField", i -> i.getStringField(1) + i.getStringField(2) + i.getStringField(3));
        addGetter("getStringField of a field that is not there", i -> i.getStringField(99));
        addGetter("getNumericFieldAsLong", i -> i.getNumericFieldAsLong(0));
        addGetter("getNumericFieldAsDouble", i -> i.getNumericFieldAsDouble(1));
        addGetter("getNumericFieldAsDouble of a field that is not there", i -> i.getNumericFieldAsDouble(99));
        addGetter("the numbers of a message", i -> i.getUniformMessageId() + " " + i.getMsgSeqNum() + " "
                + i.getPrevSeqNum() + " " + i.getConnectionMsgId() + " " + i.getTimestamp() + " "
                + i.getIsPossDupFlag() + i.getIsOutOfSequence());
        addGetter("the rest of a walk", ShortageStage::rest);
        addDoing("an iterator closed", ITERATOR, stage -> stage.iterator.close());
        add("a closed iterator used", stage -> stage.openIterator().close(), stage -> "" + stage.iterator.next());
    }

    /** A holder that throws. */
    public static final class ThrowingHolder {
        public void setValue(long value) {
            throw new IllegalStateException("thrown by a holder on purpose");
        }
    }

    private void addLookups() {
        add("getLastMessageId", READER, stage -> "" + stage.table.getLastMessageId(0));
        add("getLastGoodMsgSeqNum", READER, stage -> {
            TimestampHolder holder = new TimestampHolder();
            return stage.table.getLastGoodMsgSeqNum(0, holder) + " " + holder.getValue();
        });
        add("getLastGoodMsgSeqNum with a holder that throws", READER,
                stage -> "" + stage.table.getLastGoodMsgSeqNum(0, new ThrowingHolder()));
        add("getPendingMsgSeqNum", READER,
                stage -> stage.table.getPendingMsgSeqNum(0, true) + " " + stage.table.getPendingMsgSeqNum(0, false));
        add("getLastUniformMessageId", READER, stage -> "" + stage.table.getLastUniformMessageId());
        add("a closed table used", stage -> stage.openTable(0).close(), stage -> "" + stage.table.getLastMessageId(0));
    }

    private void addWatches() {
        addDoing("a watcher made", READER, stage -> stage.watcher = JNITboMessageWatcher.open(stage.table));
        addDoing("a watcher closed", WATCHER, stage -> stage.watcher.close());
        add("a watch", WATCHER, stage -> {
            StringBuilder text = new StringBuilder();
            stage.watcher.startWatching(new int[] {2}, into(text, 1));
            return text.toString();
        });
        add("a compact watch of two tables", stage -> {
            stage.second = JNITboMessageTable.open(stage.many, 0);
            stage.watcher = JNITboMessageWatcher.open(stage.openTable(0), stage.second);
        }, stage -> {
            StringBuilder text = new StringBuilder();
            stage.watcher.startWatchingCompact(new int[] {1, 998}, new JNITboMessageWatcher.CompactListener() {
                @Override
                public int onGetMessages(int count, int[] uniformIds, byte[][] wires) {
                    text.append(count).append(Arrays.toString(uniformIds));
                    return 1;
                }

                @Override
                public void onBatchTables(int[] tableIndexes) {
                    text.append(Arrays.toString(tableIndexes));
                }
            });
            return text.toString();
        });
        addDoing("a watch whose listener throws", WATCHER,
                stage -> stage.watcher.startWatching(new int[] {1}, (count, timestamps, wires, others) -> {
                    throw new IllegalStateException("thrown by a listener on purpose");
                }));
        addDoing("a watch with too few ids", WATCHER,
                stage -> stage.watcher.startWatching(new int[0], into(new StringBuilder(), 1)));
        add("a watch that is stopped by its listener", WATCHER, stage -> {
            StringBuilder text = new StringBuilder();
            stage.watcher.startWatching(new int[] {1}, (count, timestamps, wires, others) -> {
                text.append(count).append(' ');
                stage.watcher.stop();
                return 0;
            });
            return text.toString();
        });
    }

    private void addLarge() {
        Consumer<ShortageStage> walk = stage -> stage.openIterator(stage.makeLarge(), stage.large);
        addDoing("a large message written as bytes", stage -> {
            stage.table = JNITboMessageTable.open(stage.large, 1);
            stage.bytes = ShortageStage.largeBytes();
        }, stage -> stage.storeLarge(stage.bytes));
        add("getWireMessage of a large message", walk, stage -> {
            String wire = stage.iterator.getWireMessage();
            return wire.length() + " characters with the hash " + wire.hashCode();
        });
        add("getWireMessageAsByteArray of a large message", walk,
                stage -> ShortageStage.checksum(stage.iterator.getWireMessageAsByteArray()));
        add("getStringField of a large message", walk, stage -> "" + stage.iterator.getStringField(2));
        add("a large message read", ShortageStage::makeLarge, stage -> {
            String[] text = new String[1];
            stage.table.readMessages(new int[] {1}, (count, timestamps, wires, others) -> {
                text[0] = count + " " + ShortageStage.checksum(wires[0]);
                return 0;
            });
            return text[0];
        });
        add("a watch of a large message", stage -> stage.watcher = JNITboMessageWatcher.open(stage.makeLarge()), stage -> {
            String[] text = new String[1];
            stage.watcher.startWatching(new int[] {1}, (count, timestamps, wires, others) -> {
                text[0] = count + " " + ShortageStage.checksum(wires[0]);
                return 1;
            });
            return text[0];
        });
    }
}
