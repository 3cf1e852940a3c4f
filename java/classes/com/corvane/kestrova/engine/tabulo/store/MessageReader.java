package com.corvane.kestrova.engine.tabulo.store;

import com.corvane.kestrova.engine.tabulo.MessageClass;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import java.nio.file.Path;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Optional;

/** What is needed to read a table's messages: its configuration and the places of its fields. */
final class MessageReader {
    private static final byte[] NOTHING = {};

    private final Path file;
    private final String table;
    private final Layout layout;
    private final TableConfiguration configuration;
    private final int firstText;

    MessageReader(Path file, Layout layout) {
        this.file = file;
        this.layout = layout;
        table = file.getFileName().toString();
        configuration = layout.configuration(file);
        firstText = layout.texts().isEmpty() ? 0 : configuration.stringFieldId(layout.texts().get(0));
    }

    Path file() {
        return file;
    }

    String table() {
        return table;
    }

    Layout layout() {
        return layout;
    }

    TableConfiguration configuration() {
        return configuration;
    }

    /** The message at which an iterator stands. */
    StoredMessage read(JNITboMessageTableIterator at) {
        Map<String, String> texts = new LinkedHashMap<>();
        List<String> names = layout.texts();
        for (int i = 0; i < names.size(); ++i) {
            StoredMessage.put(texts, names.get(i), at.getStringField(firstText + i));
        }
        Map<String, Number> numbers = new LinkedHashMap<>();
        names = layout.numbers();
        for (int i = 0; i < names.size(); ++i) {
            double number = at.getNumericFieldAsDouble(i);
            if (!Double.isNaN(number)) {
                numbers.put(names.get(i), StoredMessage.number(number, at.getNumericFieldAsLong(i)));
            }
        }
        int id = at.getConnectionMsgId();
        return new StoredMessage(table, at.getUniformMessageId(), id, MessageClass.of(id), at.getMsgSeqNum(),
                at.getPrevSeqNum(), Times.toInstant(at.getTimestamp(), layout.timeUnit()), at.getMsgType(),
                at.getIsPossDupFlag(), at.getIsOutOfSequence(), Optional.ofNullable(at.getStringField(0)),
                Optional.ofNullable(at.getStringField(1)), texts, numbers, orNothing(at.getWireMessageAsByteArray()),
                orNothing(at.getNonMetadataFieldsAsByteArray()));
    }

    private static byte[] orNothing(byte[] bytes) {
        return bytes == null ? NOTHING : bytes;
    }
}
