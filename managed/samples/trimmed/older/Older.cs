public class Older
{
    public static string Word() => "out";
}
