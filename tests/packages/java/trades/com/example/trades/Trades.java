package com.example.trades;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.StringFieldFilter;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboLibLoader;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageWatcher;
import java.nio.file.Path;

/** Stores orders, asks for some of them and follows all. Run with a directory that holds no table yet. */
public final class Trades {
    private Trades() {
    }

    private static void store(JNITboMessageTable table) {
        int id = 0;
        for (String symbol : new String[] {"ACME", "KVS", "ACME"}) {
            ++id;
            table.writeMessage(id, id, 0, id, System.currentTimeMillis(), ' ', "D", false, false, null, null,
                    "35=D\00155=" + symbol + "\001", null, new String[] {symbol}, null);
        }
    }

    private static int asked(JNITboMessageTable table, TableConfiguration configuration) {
        var acme = MessageQueryConditions.builder(configuration)
                .string("Symbol", StringFieldFilter.anyOf("ACME")).build();
        int count = 0;
        try (var messages = table.getMessages(acme)) {
            while (messages.next()) {
                count += messages.getWireMessage().equals("35=D\00155=ACME\001") ? 1 : 0;
            }
        }
        return count;
    }

    private static int followed(JNITboMessageTable table) {
        int[] found = new int[1];
        try (var watcher = JNITboMessageWatcher.open(table)) {
            watcher.startWatchingCompact(new int[] {JNITboMessageWatcher.FROM_BEGINNING}, (count, ids, wires) -> {
                found[0] += count;
                return found[0] < 3 ? 0 : 1;
            });
        }
        return found[0];
    }

    public static void main(String[] arguments) {
        JNITboLibLoader.load();
        JNITboLibLoader.initLibrary();
        var configuration = TableConfiguration.builder("orders", Path.of(arguments[0])).stringFields("Symbol").build();
        try (var table = JNITboMessageTable.open(configuration, JNITboMessageTable.MODE_WRITE)) {
            store(table);
            System.out.println("stored 3, found " + asked(table, configuration) + ", followed " + followed(table));
        }
    }
}
