// The terminal's version and the name on a Thai ID card, through the Varnik package.
//   dotnet run -- DEVICE [PORT]      (Linux)
//   dotnet run -- COM<N>             (Windows)
// On Linux DEVICE is the terminal's tty (a USB adapter, or the pty the simulator prints); the
// program makes it COM<PORT> (default 7) in the config folder beside the library, as a till's
// installer does once.
using Varnik;

if (args.Length < 1) {
    Console.Error.WriteLine("usage: dotnet run -- DEVICE [PORT]   e.g. /dev/ttyUSB0, the simulator's /dev/pts/N, or COM7");
    return 2;
}
int port;
if (args[0].StartsWith("COM", StringComparison.OrdinalIgnoreCase)) {
    port = int.Parse(args[0].Substring(3));
} else {
    port = args.Length > 1 ? int.Parse(args[1]) : 7;
    string config = Path.Combine(AppContext.BaseDirectory, "config");
    Directory.CreateDirectory(config);
    string link = Path.Combine(config, "COM" + port);
    File.Delete(link);
    File.CreateSymbolicLink(link, args[0]);
}

using var terminal = new Terminal();
try {
    terminal.CheckPort(port);
} catch (VarnikException e) {
    Console.Error.WriteLine($"No terminal on {args[0]}: {e.Message}");
    return 1;
}
Console.WriteLine("Terminal version: " + terminal.Version());
ThaiIdCard? card = terminal.ReadThaiId();
Console.WriteLine(card == null ? "No Thai ID card read."
                               : $"Thai ID card: {card.EnglishName} ({card.ThaiName}), born {card.BirthDate:yyyy-MM-dd}");
return 0;
