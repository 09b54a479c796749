// What only Mono shows of the binding (the xunit tests cover the rest on .NET): the library
// found through the dllmap of Varnik.Net.dll.config, a cancel on Mono's tasks, and a process
// that ends while a call waits. Run from a till folder that holds the library,
// Varnik.Net.dll with its config and config/:  mono BindingTest.exe GROUP SIMULATOR
using System;
using System.Diagnostics;
using System.IO;
using System.Threading;
using System.Threading.Tasks;
using Varnik;

static class BindingTest
{
    static int Main(string[] args)
    {
        string till = AppDomain.CurrentDomain.BaseDirectory, record = Path.Combine(till, "received.bin");
        var sim = Process.Start(new ProcessStartInfo(args[1], "--quiet --pin-wait --link " +
            Path.Combine(till, "config/COM7") + " --record " + record) {
            UseShellExecute = false, RedirectStandardOutput = true });
        sim.StandardOutput.ReadLine();  // its pty: the link stands
        File.WriteAllText(Path.Combine(till, "sim.pid"), sim.Id.ToString());
        var terminal = new Terminal();
        terminal.CheckPort(7);
        var cancel = new CancellationTokenSource();
        Task<byte[]> pin = terminal.ReadPinAsync(cancel.Token);
        for (int i = 0; i < 500 && !(File.Exists(record) && File.ReadAllText(record).Contains("pinpad.json")); ++i)
            Thread.Sleep(10);
        if (args[0] == "exit") {
            // Main returns with the PIN entry waiting: the process must end, not hang in
            // Mono's shutdown. The simulator stays (its going would end the wait) until
            // run-binding-test.sh ends it.
            Console.WriteLine("exit with a call waiting");
            return 0;
        }
        int failures = 0;
        cancel.Cancel();
        try {
            pin.Wait(20000);
            Console.WriteLine("FAIL: a cancelled PIN entry gave " + BitConverter.ToString(pin.Result));
            ++failures;
        } catch (AggregateException e) when (e.InnerException is OperationCanceledException) {
        }
        if (terminal.Version() != "NEW6210 SIM 1.0") {
            Console.WriteLine("FAIL: version after the cancel");
            ++failures;
        }
        sim.Kill();
        Console.WriteLine(failures == 0 ? "all passed" : failures + " failed");
        return failures == 0 ? 0 : 1;
    }
}
