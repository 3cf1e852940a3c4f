/**
 * The storage library as Java sees it: its loader, its tables, and the exception by which it reports errors.
 *
 * <p>The library starts no thread and takes no lock. The classes here serialise: any number of threads may use an object.
 */
package com.corvane.kestrova.engine.tabulo.jni;
