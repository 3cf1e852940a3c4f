package com.corvane.kestrova.benchmarks;

import com.corvane.kestrova.engine.tabulo.MessageQueryConditions;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTable;
import com.corvane.kestrova.engine.tabulo.jni.JNITboMessageTableIterator;
import com.corvane.kestrova.engine.tabulo.store.Layout;
import java.nio.file.Path;

/** The table "orders" of the workload in a directory, with the layout that the native benchmarks give it. */
final class OrdersTable {
    static final String NAME = "orders";
    static final Layout LAYOUT =
            Layout.builder().texts("ClOrdID", "Symbol", "Account").numbers("OrderQty", "Price").build();
    private static final TableConfiguration FIELDS = configuration(Path.of(""));
    static final int CL_ORD_ID = FIELDS.stringFieldId("ClOrdID");
    static final int SYMBOL = FIELDS.stringFieldId("Symbol");
    static final int ACCOUNT = FIELDS.stringFieldId("Account");
    static final int ORDER_QTY = FIELDS.numericFieldId("OrderQty");
    static final int PRICE = FIELDS.numericFieldId("Price");

    private OrdersTable() {
    }

    static JNITboMessageTable open(Path directory, int mode) {
        return JNITboMessageTable.open(configuration(directory), mode);
    }

    /** An iterator over all orders. */
    static JNITboMessageTableIterator all(JNITboMessageTable table) {
        return table.getMessages(MessageQueryConditions.builder(FIELDS).build());
    }

    private static TableConfiguration configuration(Path directory) {
        return TableConfiguration.builder(NAME, directory).stringFields("ClOrdID", "Symbol", "Account")
                .numericFields("OrderQty", "Price").build();
    }
}
