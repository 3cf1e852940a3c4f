/** A small FIX engine that stores recorded sessions in message tables, reads them back, and survives being killed. */
package com.corvane.kestrova.examples;
