package com.corvane.kestrova.engine.tabulo;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;

/**
 * Describes one table: its name, where its file is, which fields are indexed.
 *
 * <p><b>A database root must end with "/".</b> The table's path is the root followed directly by the table's name; a
 * root without the trailing slash (and any root of one character) is joined to the name by a backslash, also on
 * Linux, where that makes a file {@code root\name} beside the directory. {@link #builder(String, Path)} adds the
 * slash itself.
 *
 * <p>The library reads a configuration while it opens a table, through the six methods whose names begin with "get",
 * and keeps nothing of it afterwards. Any other class with the same six methods serves as well. A message table's field
 * names are stored in its file; opening it later with other fields fails.
 *
 * @param tableName the table's name, also the name of its file
 * @param dbRoot database root of the table's file, ending with "/"
 * @param replicasDbRoots database roots of replicas, each ending with "/"; they are recorded, but no replica is opened
 * @param stringFieldsNames names of the indexed string fields of a message table, at most 12
 * @param numericFieldsNames names of the indexed numeric fields of a message table, at most 16
 * @param sessionInfoTableTags tags of a session info table, at most 32; none means the library's six default tags
 */
public record TableConfiguration(String tableName, String dbRoot, List<String> replicasDbRoots,
        List<String> stringFieldsNames, List<String> numericFieldsNames, List<Integer> sessionInfoTableTags) {

    /** String slots before the configured fields. */
    private static final int LEADING_BUILT_IN_STRINGS = 2;

    /**
     * Copies the lists. Counts and names are checked by the library when the table is opened.
     *
     * @param tableName the table's name, also the name of its file
     * @param dbRoot database root of the table's file, ending with "/"
     * @param replicasDbRoots database roots of replicas
     * @param stringFieldsNames names of the indexed string fields
     * @param numericFieldsNames names of the indexed numeric fields
     * @param sessionInfoTableTags tags of a session info table
     * @throws NullPointerException when a list or one of its elements is null
     */
    public TableConfiguration {
        replicasDbRoots = List.copyOf(replicasDbRoots);
        stringFieldsNames = List.copyOf(stringFieldsNames);
        numericFieldsNames = List.copyOf(numericFieldsNames);
        sessionInfoTableTags = List.copyOf(sessionInfoTableTags);
    }

    /**
     * Begins a configuration with a root as the library takes it.
     *
     * @param tableName the table's name
     * @param dbRoot database root, ending with "/"
     * @return a builder without fields, replicas and tags
     */
    public static Builder builder(String tableName, String dbRoot) {
        return new Builder(tableName, dbRoot);
    }

    /**
     * Begins a configuration in a directory; the trailing "/" is added.
     *
     * @param tableName the table's name
     * @param directory the directory of the table's file, which must exist; an empty path is the working directory
     * @return a builder without fields, replicas and tags
     */
    public static Builder builder(String tableName, Path directory) {
        String path = directory.toString();
        // The slash comes also behind the file system's own root: a root of one character would get a backslash.
        return new Builder(tableName, (path.isEmpty() ? "." : path) + "/");
    }

    /**
     * Called by the library: the table's name.
     *
     * @return the name
     */
    public String getTableName() {
        return tableName;
    }

    /**
     * Called by the library: the database root.
     *
     * @return the root
     */
    public String getDbRoot() {
        return dbRoot;
    }

    /**
     * Called by the library: the replicas' database roots.
     *
     * @return the roots, null when there are none
     */
    public String[] getReplicasDbRoots() {
        return toArray(replicasDbRoots);
    }

    /**
     * Called by the library: the names of the indexed string fields.
     *
     * @return the names, null when there are none
     */
    public String[] getStringFieldsNames() {
        return toArray(stringFieldsNames);
    }

    /**
     * Called by the library: the names of the indexed numeric fields.
     *
     * @return the names, null when there are none
     */
    public String[] getNumericFieldsNames() {
        return toArray(numericFieldsNames);
    }

    /**
     * Called by the library: the session info tags.
     *
     * @return the tags, null for the default ones
     */
    public int[] getSessionInfoTableTags() {
        return sessionInfoTableTags.isEmpty() ? null
                : sessionInfoTableTags.stream().mapToInt(Integer::intValue).toArray();
    }

    /**
     * The id by which queries and iterators address an indexed string field.
     *
     * @param name a configured name
     * @return the field's slot number in a message
     * @throws IllegalArgumentException when no string field has that name
     */
    public int stringFieldId(String name) {
        return LEADING_BUILT_IN_STRINGS + indexOf(stringFieldsNames, name, "string");
    }

    /**
     * The id by which queries and iterators address a string field that every message has.
     *
     * @param field the field
     * @return its slot number in a message of this configuration
     */
    public int stringFieldId(MessageStringField field) {
        int behindConfigured = LEADING_BUILT_IN_STRINGS + stringFieldsNames.size();
        return switch (field) {
            case BUILT_IN_0 -> 0;
            case BUILT_IN_1 -> 1;
            case WIRE_MESSAGE -> behindConfigured;
            case NON_METADATA_FIELDS -> behindConfigured + 1;
            case MSG_TYPE -> behindConfigured + 2;
        };
    }

    /**
     * The id by which queries and iterators address an indexed numeric field.
     *
     * @param name a configured name
     * @return the field's number, counted from 0
     * @throws IllegalArgumentException when no numeric field has that name
     */
    public int numericFieldId(String name) {
        return indexOf(numericFieldsNames, name, "numeric");
    }

    /**
     * The id by which queries and iterators address a number of the metadata.
     *
     * @param field the field
     * @return its number behind the configured numeric fields
     */
    public int numericFieldId(MessageNumericField field) {
        return numericFieldsNames.size() + field.ordinal();
    }

    private static String[] toArray(List<String> texts) {
        return texts.isEmpty() ? null : texts.toArray(new String[0]);
    }

    private int indexOf(List<String> names, String name, String kind) {
        int index = names.indexOf(name);
        if (index < 0) {
            throw new IllegalArgumentException("table " + tableName + " has no " + kind + " field " + name);
        }
        return index;
    }

    /** Collects a configuration step by step. */
    public static final class Builder {
        private final String tableName;
        private final String dbRoot;
        private final List<String> replicas = new ArrayList<>();
        private final List<String> stringFields = new ArrayList<>();
        private final List<String> numericFields = new ArrayList<>();
        private final List<Integer> tags = new ArrayList<>();

        private Builder(String tableName, String dbRoot) {
            this.tableName = tableName;
            this.dbRoot = dbRoot;
        }

        /**
         * Adds database roots of replicas.
         *
         * @param dbRoots roots, each ending with "/"
         * @return this builder
         */
        public Builder replicas(String... dbRoots) {
            replicas.addAll(List.of(dbRoots));
            return this;
        }

        /**
         * Adds indexed string fields, in the order in which messages bring their values.
         *
         * @param names the fields' names
         * @return this builder
         */
        public Builder stringFields(String... names) {
            stringFields.addAll(List.of(names));
            return this;
        }

        /**
         * Adds indexed numeric fields, in the order in which messages bring their values.
         *
         * @param names the fields' names
         * @return this builder
         */
        public Builder numericFields(String... names) {
            numericFields.addAll(List.of(names));
            return this;
        }

        /**
         * Adds tags of a session info table.
         *
         * @param values the tags
         * @return this builder
         */
        public Builder sessionInfoTags(int... values) {
            for (int tag : values) {
                tags.add(tag);
            }
            return this;
        }

        /**
         * Ends the configuration.
         *
         * @return the configuration
         */
        public TableConfiguration build() {
            return new TableConfiguration(tableName, dbRoot, replicas, stringFields, numericFields, tags);
        }
    }
}
