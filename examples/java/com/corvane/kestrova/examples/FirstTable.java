package com.corvane.kestrova.examples;

import com.corvane.kestrova.engine.tabulo.store.Layout;
import com.corvane.kestrova.engine.tabulo.store.MessageStore;
import com.corvane.kestrova.engine.tabulo.store.Query;
import com.corvane.kestrova.engine.tabulo.store.Tabulo;
import java.nio.file.Path;

/** Stores an order and asks for it. Run with the path of libtabulo.so and a directory that exists. */
public final class FirstTable {
    private FirstTable() {
    }

    public static void main(String[] arguments) {
        Tabulo.load(Path.of(arguments[0]));
        storeAndAsk(Path.of(arguments[1]));
    }

    private static void storeAndAsk(Path directory) {
        var layout = Layout.builder().texts("Symbol").numbers("Price").build();
        try (var orders = MessageStore.openOrCreate(directory.resolve("orders"), layout)) {
            orders.append().sent().seqNum(1).type("D").text("Symbol", "ACME").number("Price", 10.5)
                    .wire("35=D\00155=ACME\00144=10.5\001").store();
            try (var acme = orders.query(Query.all().text("Symbol", "ACME"))) {
                acme.forEach(order -> System.out.println(order.seqNum() + ": " + order.wireText().replace('\1', '|')));
            }
        }
    }
}
