/** A program of somebody else. */
module com.example.trades {
    requires tabulo;
}
