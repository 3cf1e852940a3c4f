/**
 * The storage library as Java sees it: its loader, its tables, and the exception by which it reports errors.
 *
 * <p>The library starts no thread and takes no lock: one thread at a time uses a table and what was opened through it.
 */
package com.corvane.kestrova.engine.tabulo.jni;
