package com.corvane.kestrova.engine.tabulo.jni;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/** A configuration of the tests' own: the library must ask for nothing but these six methods. */
class Provider {
    String tableName = "orders";
    String dbRoot;
    String[] replicas;
    String[] strings;
    String[] numerics;
    int[] tags;
    final List<String> calls = new ArrayList<>();

    Provider(Path directory) {
        dbRoot = directory == null ? null : directory + "/";
    }

    static String[] names(String prefix, int count) {
        String[] names = new String[count];
        for (int i = 0; i < count; ++i) {
            names[i] = prefix + i;
        }
        return names;
    }

    Provider strings(String... names) {
        strings = names;
        return this;
    }

    Provider numerics(String... names) {
        numerics = names;
        return this;
    }

    Provider named(String name) {
        tableName = name;
        return this;
    }

    public String getTableName() {
        calls.add("getTableName");
        return tableName;
    }

    public String getDbRoot() {
        calls.add("getDbRoot");
        return dbRoot;
    }

    public String[] getReplicasDbRoots() {
        calls.add("getReplicasDbRoots");
        return replicas;
    }

    public String[] getStringFieldsNames() {
        calls.add("getStringFieldsNames");
        return strings;
    }

    public String[] getNumericFieldsNames() {
        calls.add("getNumericFieldsNames");
        return numerics;
    }

    public int[] getSessionInfoTableTags() {
        calls.add("getSessionInfoTableTags");
        return tags;
    }
}
