import com.corvane.util.log.ILogFacility;
import com.corvane.util.log.ILogger;

/** A log facility whose loggers write down what they get. */
public class Recorder implements ILogFacility {
    private final StringBuffer text = new StringBuffer();

    private ILogger logger(String level) {
        return (argument, line) -> text.append(level).append(argument).append('[').append(line).append(']');
    }

    @Override
    public ILogger debug() {
        return logger("debug");
    }

    @Override
    public ILogger info() {
        return logger("info");
    }

    @Override
    public ILogger warning() {
        return logger("warning");
    }

    @Override
    public ILogger error() {
        return logger("error");
    }

    public String take() {
        String taken = text.toString();
        text.setLength(0);
        return taken;
    }
}
