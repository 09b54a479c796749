// The binding on .NET against libvarnik.so (found by its plain name, no dllmap) and the
// simulator on config/COM7 beside it. One library per process: the tests run one at a time.
using System;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text;
using System.Threading;
using System.Threading.Tasks;
using Varnik;
using Xunit;

[assembly: CollectionBehavior(DisableTestParallelization = true)]

public sealed class Sim : IDisposable
{
    static readonly string Config = Path.Combine(AppContext.BaseDirectory, "config");
    readonly Process m_process;
    readonly string m_record = Path.Combine(AppContext.BaseDirectory, "received.bin");

    static Sim()
    {
        if (Directory.Exists(Config))
            Directory.Delete(Config, true);  // no varnik.json from an earlier run
        Directory.CreateDirectory(Config);
    }

    public Sim(string options = "")
    {
        File.Delete(m_record);
        m_process = Process.Start(new ProcessStartInfo(Environment.GetEnvironmentVariable("VARNIK_SIMULATOR"),
            $"--quiet --link {Config}/COM7 --record {m_record} {options}") { RedirectStandardOutput = true });
        m_process.StandardOutput.ReadLine();  // its pty: the link stands
    }

    public string Received => File.Exists(m_record) ? Encoding.Latin1.GetString(File.ReadAllBytes(m_record)) : "";
    public int Cancels => Received.Count(c => c == '\u0018');

    public void WaitFor(string part, int times = 1) => WaitUntil(() => Received.Split(part).Length > times);

    public static void WaitUntil(Func<bool> done)
    {
        for (int i = 0; i < 1000 && !done(); ++i)
            Thread.Sleep(10);
        Assert.True(done(), "the simulator did not get what the test waits for");
    }

    public void Dispose() { m_process.Kill(); m_process.WaitForExit(); }
}

public class TerminalTests
{
    static readonly Terminal T = new Terminal();
    const int Long = 20000;  // a hang guard, not a speed limit

    static Sim Started(string options = "")
    {
        var sim = new Sim(options);
        T.CheckPort(7);
        return sim;
    }

    [Fact]
    public void PortsAndProbe()
    {
        using (var sim = Started()) {
            T.Probe();
            // A look at a port with no device leaves the working one in use.
            Assert.Throws<PortUnavailableException>(() => T.CheckPort(8));
            Assert.Equal("NEW6210 SIM 1.0", T.Version());
        }
        // The simulator is gone and its link with it: a 110 is no text of 110 bytes.
        Assert.Equal(110, Assert.Throws<PortUnavailableException>(() => T.Version()).Result);
        Assert.Throws<PortUnavailableException>(() => T.ReadThaiIdBlock());
        using (new Sim("--silent"))
            Assert.Equal(1538, Assert.Throws<NoTerminalException>(() => T.Probe()).Result);
        string long110 = new string('V', 110);
        using (new Sim("--version-text " + long110))
            Assert.Equal(long110, T.Version());
    }

    [Fact]
    public void StripeKeypadAndEmv()
    {
        using (var sim = Started("--mk-reply 4F:4B")) {
            StripeTracks stripe = T.ReadStripe();
            Assert.True(stripe.IsSwiped && stripe.Track1.IsChecked && stripe.Track2.IsChecked, stripe.Text);
            Assert.Equal("4111111111111111=2512101", stripe.Track1.Field);
            Assert.Equal("4111111111111111=2512", stripe.Track2.Field);
            Assert.Equal(new byte[] { 0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF, 0, 0, 0, 0, 0, 0, 0, 0 }, T.ReadPin());
            Assert.Equal(new byte[] { 0x12, 0x34, 0x56, 0x78, 0x90, 0xAB, 0xCD, 0xEF }, T.ReadPinWithPrompt("บาท"));
            sim.WaitFor("pinclear.json|" + Encoding.Latin1.GetString(Encoding.UTF8.GetBytes("บาท")) + "\0");
            Assert.Throws<ArgumentException>(() => T.ReadPinWithPrompt("@x"));
            KeyLoadReply key = T.LoadMasterKey(Enumerable.Range(1, 16).Select(i => (byte)i).ToArray());
            Assert.Equal((false, "OK"), (key.Acknowledged, key.Text));
            sim.WaitFor("\u0002" + "02" + "\u0001\u0002\u0003");
            Assert.Contains("\"value\":\"JAIDEE/SOMCHAI MR\"", T.ReadEmv());
        }
        using (Started("--swipe-fail")) {
            Assert.Equal("READ ERROR", T.ReadStripe().Message);
            T.EnableCardReader();
        }
    }

    [Fact]
    public void ThaiIdWithPhoto()
    {
        using (Started()) {
            ThaiIdCard text = T.ReadThaiId(), block = T.ReadThaiId(withPhoto: true);
            foreach (ThaiIdCard card in new[] { text, block }) {
                Assert.Equal("1234567890121", card.CitizenId);
                Assert.Equal("สมชาย", card.ThaiName.First);
                Assert.Equal("Mr. Somchai Jaidee", card.EnglishName.ToString());
                Assert.Equal(new DateTime(1987, 1, 15), card.BirthDate);
                Assert.Equal("25300115", card.BirthDateText);
                Assert.Equal((new DateTime(2022, 3, 1), new DateTime(2031, 1, 14)), (card.IssueDate.Value, card.ExpiryDate.Value));
                Assert.Equal((ThaiIdSex.Male, "1"), (card.Sex, card.SexCode));
            }
            Assert.Null(text.Photo);
            Assert.Equal((5118, (byte)0xFF, (byte)0xD8), (block.Photo.Length, block.Photo[0], block.Photo[1]));
            Assert.StartsWith("1234567890121|", T.ReadThaiIdText(4));
        }
        Assert.Null(ThaiIdCard.ToDate("99999999"));
        Assert.Equal(2, T.ThaiColumns("น้ำ"));
        // The library would end the process on this one; the binding refuses it instead.
        Assert.Throws<ArgumentException>(() => T.ThaiColumns(new string('ก', 10240)));
    }

    [Theory]
    [InlineData("version", 1, ExecOutcome.Done, "NEW6210 SIM 1.0")]
    [InlineData("{\"format\":\"BEEP\"}", 0, ExecOutcome.Done, "")]
    [InlineData("{\"format\":\"nothing\"}", 0, ExecOutcome.UnknownCommand, "")]
    [InlineData("{\"format\":\"file\",\"cmd\":\"nothing\"}", 0, ExecOutcome.UnknownCommand, "")]
    [InlineData("{}", -2, ExecOutcome.Failed, "")]
    public void Exec(string command, int code, ExecOutcome outcome, string text)
    {
        using (Started()) {
            ExecResult result = T.Exec(command);
            Assert.Equal((code, outcome, text), (result.Code, result.Outcome, result.Text));
            T.Probe();  // the scripts leave the port open: close it before the terminal goes
        }
    }

    [Fact]
    public void UploadListDelete()
    {
        string file = Path.Combine(AppContext.BaseDirectory, "receipt.json");
        File.WriteAllText(file, "{\"logo\":1}");
        using (Started("--files pinpad.json:10")) {
            T.Upload(file);
            Assert.Equal(new[] { "pinpad.json 10", "receipt.json 10" }, T.ListFiles());
            T.DeleteFile("pinpad.json");
            Assert.Equal(new[] { "receipt.json 10" }, T.ListFiles());
            Assert.Throws<FileNotFoundException>(() => T.Upload(file + ".missing"));
            T.Probe();
        }
        using (Started("--fail-upload=receipt.json")) {
            var e = Assert.Throws<CommandFailedException>(() => T.Upload(file));
            Assert.Equal((Failure.CommandRefused, -1), (e.Failure, e.Result));
            T.Probe();
        }
    }

    public static TheoryData<Action> NullArguments => new TheoryData<Action> {
        () => T.Upload(null), () => T.DeleteFile(null), () => T.Exec(null), () => T.ReadPinWithPrompt(null),
        () => T.LoadMasterKey(null), () => T.ThaiColumns(null), () => T.UploadAsync(null), () => ThaiIdCard.FromBlock(null),
    };

    [Theory, MemberData(nameof(NullArguments))]
    public void NullArgumentsAreRefusedBeforeAnythingIsSent(Action call)
    {
        Assert.Throws<ArgumentNullException>(call);
    }

    // Each way to end a waiting call: the call throws, and the terminal got one CAN.
    [Fact]
    public void CancelEndsTheCallWithOperationCanceled()
    {
        using (var sim = Started("--pin-wait --swipe-wait --thaiid-wait")) {
            var source = new CancellationTokenSource();
            Task<byte[]> pin = T.ReadPinAsync(source.Token);
            sim.WaitFor("pinpad.json");
            source.Cancel();
            Assert.ThrowsAny<OperationCanceledException>(() => Wait(pin));
            Assert.Equal(1, sim.Cancels);

            Task<StripeTracks> stripe = T.ReadStripeAsync();
            sim.WaitFor("Swipe Card :");
            Terminal.Cancel();
            Assert.ThrowsAny<OperationCanceledException>(() => Wait(stripe));
            Assert.Equal(2, sim.Cancels);

            // A call queued behind a waiting one ends on its own token, and the waiting one
            // goes on until it is cancelled itself.
            source = new CancellationTokenSource();
            int sent = sim.Received.Length;
            Task<ThaiIdCard> card = T.ReadThaiIdAsync();
            Sim.WaitUntil(() => sim.Received.Length > sent);
            var queued = new CancellationTokenSource();
            Task<string> version = T.VersionAsync(queued.Token);
            queued.Cancel();
            Assert.ThrowsAny<OperationCanceledException>(() => Wait(version));
            Assert.False(card.IsCompleted);
            Terminal.Cancel();
            Assert.ThrowsAny<OperationCanceledException>(() => Wait(card));

            // Disposing a terminal ends what it has waiting, and it takes no more calls.
            var other = new Terminal();
            Task<byte[]> disposedPin = other.ReadPinAsync();
            sim.WaitFor("pinpad.json", 2);
            other.Dispose();
            Assert.ThrowsAny<OperationCanceledException>(() => Wait(disposedPin));
            Assert.Throws<ObjectDisposedException>(() => other.Version());

            // A token cancelled before the start sends nothing, and one cancelled after the end
            // sends no stray CAN that a later wait would take for its own.
            int cancels = sim.Cancels;
            Assert.True(T.ReadEmvAsync(new CancellationToken(true)).IsCanceled);
            source = new CancellationTokenSource();
            Assert.Equal(1, Wait(T.ExecAsync("VERSION", source.Token)).Code);
            source.Cancel();
            Assert.Equal(1, T.Exec("VERSION").Code);
            Assert.Equal(cancels, sim.Cancels);
            T.Probe();
        }
    }

    static T Wait<T>(Task<T> task)
    {
        Assert.True(((IAsyncResult)task).AsyncWaitHandle.WaitOne(Long), "the call did not end");
        return task.GetAwaiter().GetResult();
    }
}
