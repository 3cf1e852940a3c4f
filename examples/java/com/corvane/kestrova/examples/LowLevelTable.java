package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import java.nio.file.Path;

/**
 * Stores an order and asks for it, with the classes that stand directly over the library. Run with the path of
 * libtabulo.so and a directory that exists.
 */
public final class LowLevelTable {
    private LowLevelTable() {
    }

    public static void main(String[] arguments) {
        JNITboLibLoader.load(arguments[0]);
        JNITboLibLoader.initLibrary();
        storeAndAsk(Path.of(arguments[1]));
        JNITboLibLoader.uninitLibrary();
    }

    private static void storeAndAsk(Path directory) {
        var orders = TableConfiguration.builder("orders", directory)
                .stringFields("Symbol").numericFields("Price").build();
        try (var table = JNITboMessageTable.open(orders, JNITboMessageTable.MODE_WRITE)) {
            int id = table.getLastUniformMessageId() + 1;
            table.writeMessage(id, id, 0, id, System.currentTimeMillis(), ' ', "D", false, false, null, null,
                    "35=D\00155=ACME\00144=10.5\001", null, new String[] {"ACME"}, new double[] {10.5});
            var acme = MessageQueryConditions.builder(orders).string("Symbol", StringFieldFilter.anyOf("ACME")).build();
            try (var messages = table.getMessages(acme)) {
                while (messages.next()) {
                    System.out.println(messages.getMsgSeqNum() + ": " + messages.getWireMessage().replace('\001', '|'));
                }
            }
        }
    }
}
