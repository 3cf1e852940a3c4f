package com.corvane.kestrova.engine.tabulo.jni;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.corvane.kestrova.engine.tabulo.MessageNumericField;
import com.corvane.kestrova.engine.tabulo.MessageStringField;
import com.corvane.kestrova.engine.tabulo.TableConfiguration;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;

/** The configuration record of the Java side. */
class TableConfigurationTest extends OnTables {
    @Test
    void theBuilderEndsADirectoryWithASlashAndTakesATextAsItIs() {
        assertEquals("/db/", TableConfiguration.builder("t", Path.of("/db")).build().getDbRoot());
        assertEquals("/db", TableConfiguration.builder("t", "/db").build().getDbRoot());
    }

    @Test
    void emptyListsAreGivenToTheLibraryAsNull() {
        TableConfiguration empty = TableConfiguration.builder("t", directory).build();
        assertEquals("t", empty.getTableName());
        assertNull(empty.getReplicasDbRoots());
        assertNull(empty.getStringFieldsNames());
        assertNull(empty.getNumericFieldsNames());
        assertNull(empty.getSessionInfoTableTags());
    }

    @Test
    void whatTheBuilderCollectsIsGivenInItsOrder() {
        TableConfiguration full = TableConfiguration.builder("t", directory).replicas("/a/").replicas("/b/")
                .stringFields("s1", "s2").numericFields("n1").numericFields("n2").sessionInfoTags(7, 5).build();
        assertArrayEquals(new String[] {"/a/", "/b/"}, full.getReplicasDbRoots());
        assertArrayEquals(new String[] {"s1", "s2"}, full.getStringFieldsNames());
        assertArrayEquals(new String[] {"n1", "n2"}, full.getNumericFieldsNames());
        assertArrayEquals(new int[] {7, 5}, full.getSessionInfoTableTags());
    }

    @Test
    void laterChangesOfTheListsDoNotReachIt() {
        List<String> names = new ArrayList<>(List.of("a"));
        TableConfiguration configuration =
                new TableConfiguration("t", "/db/", List.of(), names, List.of(), List.of());
        names.add("b");
        configuration.getStringFieldsNames()[0] = "changed";
        assertArrayEquals(new String[] {"a"}, configuration.getStringFieldsNames());
    }

    @Test
    void nullElementsAreRefused() {
        assertThrows(NullPointerException.class,
                () -> TableConfiguration.builder("t", directory).stringFields("a", null));
    }

    @Test
    void idsOfFieldsAreTheirSlots() {
        TableConfiguration fields = TableConfiguration.builder("t", directory).stringFields("a", "b")
                .numericFields("n").build();
        assertEquals(2, fields.stringFieldId("a"));
        assertEquals(3, fields.stringFieldId("b"));
        assertEquals(0, fields.stringFieldId(MessageStringField.BUILT_IN_0));
        assertEquals(1, fields.stringFieldId(MessageStringField.BUILT_IN_1));
        assertEquals(4, fields.stringFieldId(MessageStringField.WIRE_MESSAGE));
        assertEquals(5, fields.stringFieldId(MessageStringField.NON_METADATA_FIELDS));
        assertEquals(0, fields.numericFieldId("n"));
        assertEquals(1, fields.numericFieldId(MessageNumericField.values()[0]));
        assertThrows(IllegalArgumentException.class, () -> fields.stringFieldId("n"));
        assertThrows(IllegalArgumentException.class, () -> fields.numericFieldId("a"));
    }

    @Test
    void theLibraryOpensATableWithIt() {
        TableConfiguration configuration = TableConfiguration.builder("orders", directory).stringFields("ClOrdID")
                .numericFields("Price").replicas("/nowhere/").sessionInfoTags(1, 2).build();
        close(open(configuration, Natives.WRITE));
        assertTrue(Files.exists(file()));
        open(provider().strings("ClOrdID").numerics("Price"), Natives.WRITE);
    }
}
