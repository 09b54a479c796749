// The friendly layer: one method per thing a till does with the terminal. Buffers are sized
// for the largest reply the library can write, texts come back decoded, failures as
// exceptions that name them, and every call that waits for the terminal has an async form
// whose CancellationToken sends the terminal one cancel and ends the call with
// OperationCanceledException.
using System;
using System.Collections.Generic;
using System.IO;
using System.Text;
using System.Threading;
using System.Threading.Tasks;

namespace Varnik
{
    /// <summary>
    /// The terminal, through the library loaded in this process. Calls run one at a time
    /// (the library holds one terminal); a call waits for its turn behind the one that runs.
    /// Dispose ends what this instance has waiting, with <see cref="OperationCanceledException"/>.
    /// </summary>
    public sealed class Terminal : IDisposable
    {
        /// <summary>The library's reply buffer: no reply it hands on is longer.</summary>
        public const int ReplyCapacity = 204800;
        /// <summary>Room for a text reply: the stripe text adds sentinels and check digits.</summary>
        public const int TextBufferSize = ReplyCapacity + 16;
        /// <summary>Room for the Thai ID text: TIS-620 grows to three bytes a character in UTF-8.</summary>
        public const int ThaiTextBufferSize = 3 * ReplyCapacity + 1;
        // The library's ThaiLen work area; a text that fills it ends the process.
        const int ThaiLenArea = 10240;

        const int Ambiguous = 110;  // a port failure, or a length of 110
        const byte Untouched = 0xA5;

        // One library per process, one terminal call at a time. A queued call waits on the
        // semaphore, where its token can end the wait; a lock could not be left that way.
        static readonly SemaphoreSlim Turn = new SemaphoreSlim(1, 1);
        static readonly object Sync = new object();
        static RunningCall s_running;       // the call inside the library now, under Sync
        static int s_workingPort;           // the last port CheckPort found the terminal on
        // Cancelled when the process exits: whatever waits then must not hold the exit up.
        static readonly CancellationTokenSource Exiting = new CancellationTokenSource();

        static readonly Encoding Utf8 = new UTF8Encoding(false);

        readonly CancellationTokenSource m_life = new CancellationTokenSource();

        static Terminal()
        {
            AppDomain.CurrentDomain.ProcessExit += (sender, e) => CancelForExit();
        }

        /// <summary>Cancels what this instance has running or waiting for its turn; later calls throw
        /// <see cref="ObjectDisposedException"/>.</summary>
        public void Dispose()
        {
            m_life.Cancel();
        }

        // --- session ---------------------------------------------------------------------

        /// <summary>Is the terminal there on the configured port?</summary>
        /// <exception cref="PortUnavailableException">No port is known, or it will not open.</exception>
        /// <exception cref="NoTerminalException">Nothing answered on the port.</exception>
        public void Probe()
        {
            Run(() => Check("PosSelect", NativeMethods.PosSelect()), default(CancellationToken));
        }

        /// <summary>
        /// Probes COM<paramref name="port"/>; on success the library remembers it in
        /// config/varnik.json. On failure the port that worked before stays in use.
        /// </summary>
        /// <param name="port">The COM number (config/COM&lt;N&gt; beside the library on Linux).</param>
        /// <exception cref="PortUnavailableException">The port will not open.</exception>
        /// <exception cref="NoTerminalException">Nothing answered on the port.</exception>
        public void CheckPort(int port)
        {
            Run(() => CheckPortNow(port), default(CancellationToken));
        }

        /// <summary>Puts the terminal's card slot in front of this process's PC/SC calls.</summary>
        /// <exception cref="VarnikException">The slot could not be put in front of PC/SC.</exception>
        public void EnableCardReader()
        {
            Run(() => {
                int result = NativeMethods.ReaderSelect();
                if (result == -1)
                    throw new VarnikException("ReaderSelect", result, Failure.RedirectionFailed,
                                              "the card slot could not be put in front of PC/SC");
                Check("ReaderSelect", result);
            }, default(CancellationToken));
        }

        /// <summary>The terminal's version text.</summary>
        public string Version() { return Run(VersionNow, default(CancellationToken)); }

        /// <summary>The terminal's version text, on a thread of its own.</summary>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<string> VersionAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(VersionNow, token);
        }

        /// <summary>
        /// Ends the call that waits in the library now (from any thread): the terminal gets one
        /// cancel, and that call throws <see cref="OperationCanceledException"/>. With nothing
        /// waiting it does nothing. Calls queued behind it keep their turn.
        /// </summary>
        public static void Cancel()
        {
            RunningCall running;
            lock (Sync)
                running = s_running;
            if (running != null)
                running.Cancel();
        }

        /// <summary>Counts the display columns of a Thai text: stacked marks take none. No terminal.</summary>
        /// <param name="text">The text; under 10240 characters once in TIS-620.</param>
        public int ThaiColumns(string text)
        {
            if (text == null)
                throw new ArgumentNullException("text");
            byte[] bytes = Terminated(text);
            if (Tis620Length(bytes) >= ThaiLenArea)
                throw new ArgumentException("text too long for ThaiLen (" + ThaiLenArea + " bytes)", "text");
            return Run(() => NativeMethods.ThaiLen(bytes), default(CancellationToken));
        }

        // --- cards and keypad ------------------------------------------------------------

        /// <summary>Waits for a swipe and gives the tracks, or the terminal's message for a bad swipe.</summary>
        public StripeTracks ReadStripe() { return Run(ReadStripeNow, default(CancellationToken)); }

        /// <summary>Waits for a swipe on a thread of its own.</summary>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<StripeTracks> ReadStripeAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadStripeNow, token);
        }

        /// <summary>
        /// The PIN entry screen stored on the terminal: its reply decoded from hexadecimal,
        /// the 16 bytes before the library's fixed terminator.
        /// </summary>
        public byte[] ReadPin() { return Run(ReadPinNow, default(CancellationToken)); }

        /// <summary>The PIN entry of <see cref="ReadPin"/> on a thread of its own.</summary>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<byte[]> ReadPinAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadPinNow, token);
        }

        /// <summary>PIN entry with a prompt of your own: 8 bytes.</summary>
        /// <param name="prompt">The prompt; "" for the terminal's "INPUT". It may not begin with '@'.</param>
        public byte[] ReadPinWithPrompt(string prompt)
        {
            byte[] text = PromptText(prompt);
            return Run(() => ReadPinWithPromptNow(text), default(CancellationToken));
        }

        /// <summary>The PIN entry of <see cref="ReadPinWithPrompt"/> on a thread of its own.</summary>
        /// <param name="prompt">The prompt; "" for the terminal's "INPUT". It may not begin with '@'.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<byte[]> ReadPinWithPromptAsync(string prompt,
                                                   CancellationToken token = default(CancellationToken))
        {
            byte[] text = PromptText(prompt);
            return Waiting(() => ReadPinWithPromptNow(text), token);
        }

        /// <summary>Loads a master key into the terminal.</summary>
        /// <param name="key">16 bytes.</param>
        public KeyLoadReply LoadMasterKey(byte[] key)
        {
            RequireKey(key);
            return Run(() => LoadMasterKeyNow(key), default(CancellationToken));
        }

        /// <summary>Loads a master key on a thread of its own.</summary>
        /// <param name="key">16 bytes.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<KeyLoadReply> LoadMasterKeyAsync(byte[] key,
                                                     CancellationToken token = default(CancellationToken))
        {
            RequireKey(key);
            return Waiting(() => LoadMasterKeyNow(key), token);
        }

        /// <summary>The terminal's EMV answer, a JSON text of the tags it read.</summary>
        public string ReadEmv() { return Run(ReadEmvNow, default(CancellationToken)); }

        /// <summary>The EMV read on a thread of its own.</summary>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<string> ReadEmvAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ReadEmvNow, token);
        }

        /// <summary>
        /// The Thai ID card, or null when the terminal's answer is no card record (a card it
        /// can't read).
        /// </summary>
        /// <param name="withPhoto">Ask for the binary form, which carries the photo too.</param>
        public ThaiIdCard ReadThaiId(bool withPhoto = false)
        {
            return Run(() => ReadThaiIdNow(withPhoto), default(CancellationToken));
        }

        /// <summary>The Thai ID read on a thread of its own.</summary>
        /// <param name="withPhoto">Ask for the binary form, which carries the photo too.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<ThaiIdCard> ReadThaiIdAsync(bool withPhoto = false,
                                                CancellationToken token = default(CancellationToken))
        {
            return Waiting(() => ReadThaiIdNow(withPhoto), token);
        }

        /// <summary>The Thai ID card's text as the library gives it.</summary>
        /// <param name="mode">The read mode; mode &amp; 3 of 0 or 1 gives text.</param>
        public string ReadThaiIdText(int mode = 0)
        {
            RequireMode(mode, false);
            return Run(() => ReadThaiIdTextNow(mode), default(CancellationToken));
        }

        /// <summary>The Thai ID card's block as the terminal sends it: the record in TIS-620 and the photo.</summary>
        /// <param name="mode">The read mode; mode &amp; 3 of 2 or 3 gives the block.</param>
        public byte[] ReadThaiIdBlock(int mode = 2)
        {
            RequireMode(mode, true);
            return Run(() => ReadThaiIdBlockNow(mode), default(CancellationToken));
        }

        // --- command scripts -------------------------------------------------------------

        /// <summary>Runs one terminal command.</summary>
        /// <param name="command">"VERSION", a JSON command document, or the name of one in the
        /// library's json folder.</param>
        public ExecResult Exec(string command)
        {
            RequireText(command, "command");
            return Run(() => ExecNow("PosExec", command), default(CancellationToken));
        }

        /// <summary>Runs one terminal command on a thread of its own.</summary>
        /// <param name="command">As for <see cref="Exec"/>.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<ExecResult> ExecAsync(string command, CancellationToken token = default(CancellationToken))
        {
            RequireText(command, "command");
            return Waiting(() => ExecNow("PosExec", command), token);
        }

        /// <summary>Puts one file from this computer on the terminal, under its base name.</summary>
        /// <param name="hostFile">The file's path on this computer.</param>
        /// <exception cref="FileNotFoundException">No such file.</exception>
        /// <exception cref="CommandFailedException">The terminal refused or failed to store it.</exception>
        public void Upload(string hostFile)
        {
            string command = UploadCommand(hostFile);
            Run(() => ExecNow("Upload", command).ThrowIfFailed("Upload"), default(CancellationToken));
        }

        /// <summary>The upload of <see cref="Upload"/> on a thread of its own.</summary>
        /// <param name="hostFile">The file's path on this computer.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task UploadAsync(string hostFile, CancellationToken token = default(CancellationToken))
        {
            string command = UploadCommand(hostFile);
            return Waiting(() => ExecNow("Upload", command).ThrowIfFailed("Upload"), token);
        }

        /// <summary>The terminal's files, one line each as the terminal lists them.</summary>
        public IList<string> ListFiles() { return Run(ListFilesNow, default(CancellationToken)); }

        /// <summary>The file list on a thread of its own.</summary>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task<IList<string>> ListFilesAsync(CancellationToken token = default(CancellationToken))
        {
            return Waiting(ListFilesNow, token);
        }

        /// <summary>Deletes one of the terminal's files.</summary>
        /// <param name="name">The terminal's name of the file.</param>
        public void DeleteFile(string name)
        {
            string command = DeleteCommand(name);
            Run(() => ExecNow("DeleteFile", command).ThrowIfFailed("DeleteFile"), default(CancellationToken));
        }

        /// <summary>The delete of <see cref="DeleteFile"/> on a thread of its own.</summary>
        /// <param name="name">The terminal's name of the file.</param>
        /// <param name="token">Cancels the call, waiting or queued.</param>
        public Task DeleteFileAsync(string name, CancellationToken token = default(CancellationToken))
        {
            string command = DeleteCommand(name);
            return Waiting(() => ExecNow("DeleteFile", command).ThrowIfFailed("DeleteFile"), token);
        }

        // --- the calls themselves --------------------------------------------------------

        static string VersionNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return TextOf("getVersion", NativeMethods.getVersion(buffer), buffer);
        }

        static StripeTracks ReadStripeNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return new StripeTracks(TextOf("MsreRead", NativeMethods.MsreRead(buffer), buffer));
        }

        static byte[] ReadPinNow()
        {
            byte[] buffer = new byte[ReplyCapacity];
            if (NativeMethods.PinReadKey(buffer) == Ambiguous)
                throw new PortUnavailableException("PinReadKey");
            return Slice(buffer, 0, 16);
        }

        static byte[] ReadPinWithPromptNow(byte[] text)
        {
            byte[] buffer = new byte[Math.Max(ReplyCapacity, text.Length)];
            Array.Copy(text, buffer, text.Length);
            if (NativeMethods.PinReadKeyClear(buffer) == Ambiguous)
                throw new PortUnavailableException("PinReadKeyClear");
            return Slice(buffer, 0, 8);
        }

        static KeyLoadReply LoadMasterKeyNow(byte[] key)
        {
            byte[] buffer = new byte[ReplyCapacity];
            Array.Copy(key, buffer, 16);
            if (NativeMethods.PinLoadMK(buffer) == Ambiguous)
                throw new PortUnavailableException("PinLoadMK");
            return new KeyLoadReply(buffer[0], Utf8.GetString(buffer, 0, LengthOf(buffer)));
        }

        static void CheckPortNow(int port)
        {
            int result = NativeMethods.PosCheckPort(port);
            if (result == 0) {
                s_workingPort = port;
                return;
            }
            // The library keeps the port it was last asked about, working or not: put the
            // one that worked back, so that a look at another port leaves the till running.
            int working = s_workingPort > 0 ? s_workingPort : ConfiguredPort();
            if (working > 0 && working != port)
                NativeMethods.PosCheckPort(working);
            Check("PosCheckPort", result);
        }

        static string ReadEmvNow()
        {
            byte[] buffer = TextBuffer(TextBufferSize);
            return TextOf("EMVRead", NativeMethods.EMVRead(buffer), buffer);
        }

        static ThaiIdCard ReadThaiIdNow(bool withPhoto)
        {
            return withPhoto ? ThaiIdCard.FromBlock(ReadThaiIdBlockNow(2))
                             : ThaiIdCard.FromText(ReadThaiIdTextNow(0));
        }

        static string ReadThaiIdTextNow(int mode)
        {
            byte[] buffer = TextBuffer(ThaiTextBufferSize);
            return TextOf("ThaiIDRead", NativeMethods.ThaiIDRead(buffer, mode), buffer);
        }

        static byte[] ReadThaiIdBlockNow(int mode)
        {
            // The block has no terminator: a port failure shows as bytes left as they were.
            byte[] buffer = new byte[ReplyCapacity];
            for (int i = 0; i < Ambiguous; ++i)
                buffer[i] = Untouched;
            int result = NativeMethods.ThaiIDRead(buffer, mode);
            if (result == Ambiguous && Array.TrueForAll(Slice(buffer, 0, Ambiguous), b => b == Untouched))
                throw new PortUnavailableException("ThaiIDRead");
            return Slice(buffer, 0, Math.Max(0, Math.Min(result, buffer.Length)));
        }

        static ExecResult ExecNow(string operation, string command)
        {
            byte[] buffer = new byte[TextBufferSize];
            int result = NativeMethods.PosExec(buffer, Terminated(command));
            if (result == Ambiguous)
                throw new PortUnavailableException(operation);
            if (result == -790)
                throw new CommandFailedException(operation, result, Failure.PortClosed,
                                                 "the port closed under the command");
            return new ExecResult(result, Utf8.GetString(buffer, 0, LengthOf(buffer)), command);
        }

        static IList<string> ListFilesNow()
        {
            string listing = ExecNow("ListFiles", Command("FILE", "list", null, null))
                                 .ThrowIfFailed("ListFiles").Text;
            var lines = new List<string>();
            foreach (string line in listing.Split('\n')) {
                string trimmed = line.TrimEnd('\r');
                if (trimmed.Length > 0)
                    lines.Add(trimmed);
            }
            return lines;
        }

        // --- helpers ---------------------------------------------------------------------

        // The port of config/varnik.json beside the application, where the library sits as
        // deployed; 0 if there is none.
        static int ConfiguredPort()
        {
            try {
                string path = Path.Combine(Path.Combine(AppDomain.CurrentDomain.BaseDirectory, "config"), "varnik.json");
                var port = System.Text.RegularExpressions.Regex.Match(File.ReadAllText(path), "\"port\"\\s*:\\s*(\\d+)");
                return port.Success ? int.Parse(port.Groups[1].Value) : 0;
            } catch (IOException) {
                return 0;
            } catch (UnauthorizedAccessException) {
                return 0;
            } catch (OverflowException) {
                return 0;
            }
        }

        // Runs one call in its turn. The token (and Dispose, and the process's exit) ends the
        // wait for the turn at once; during the call it sends the terminal one cancel, and
        // the call then throws instead of handing on the terminal's answer to that cancel,
        // which is no result (16 zero bytes for a PIN, a CAN for the stripe).
        T Run<T>(Func<T> call, CancellationToken token)
        {
            if (m_life.IsCancellationRequested)
                throw new ObjectDisposedException("Terminal");
            using (var ending = CancellationTokenSource.CreateLinkedTokenSource(token, m_life.Token, Exiting.Token)) {
                try {
                    Turn.Wait(ending.Token);
                } catch (OperationCanceledException) {
                    throw Cancelled(token);
                }
                var running = new RunningCall();
                try {
                    lock (Sync)
                        s_running = running;
                    T result;
                    using (ending.Token.Register(running.Cancel))
                        result = running.IsCancelled ? default(T) : call();
                    if (running.End())
                        throw Cancelled(token);
                    return result;
                } finally {
                    lock (Sync) {
                        s_running = null;
                        Monitor.PulseAll(Sync);
                    }
                    Turn.Release();
                }
            }
        }

        void Run(Action call, CancellationToken token)
        {
            Run(() => { call(); return true; }, token);
        }

        // A waiting call on a thread of its own, which is a background thread: it never keeps
        // the process alive.
        Task<T> Waiting<T>(Func<T> call, CancellationToken token)
        {
            if (m_life.IsCancellationRequested)
                throw new ObjectDisposedException("Terminal");
            if (token.IsCancellationRequested)
                return CancelledTask<T>();
            return Task.Factory.StartNew(() => Run(call, token), token,
                                         TaskCreationOptions.LongRunning, TaskScheduler.Default);
        }

        Task Waiting(Action call, CancellationToken token)
        {
            return Waiting(() => { call(); return true; }, token);
        }

        static Task<T> CancelledTask<T>()
        {
            var source = new TaskCompletionSource<T>();
            source.SetCanceled();
            return source.Task;
        }

        static OperationCanceledException Cancelled(CancellationToken token)
        {
            return new OperationCanceledException("the call was cancelled", token);
        }

        // At exit a call may wait in the library for a customer who never comes; the runtime's
        // shutdown (Mono's) then waits for that thread for ever. One cancel brings it out.
        static void CancelForExit()
        {
            Exiting.Cancel();
            lock (Sync) {
                DateTime until = DateTime.UtcNow.AddSeconds(2);
                while (s_running != null && DateTime.UtcNow < until)
                    Monitor.Wait(Sync, 100);
            }
        }

        // The cancel of one call, never sent after the call has ended, since the library would
        // keep it for the next wait on a port that a script left open. A cancel that comes
        // while the library is still opening the port is wiped by the open; so while the call
        // goes on, the cancel is sent again each second.
        sealed class RunningCall
        {
            bool m_cancelled, m_ended;
            Timer m_again;

            public bool IsCancelled { get { lock (this) return m_cancelled; } }

            public void Cancel()
            {
                lock (this) {
                    if (m_cancelled || m_ended)
                        return;
                    m_cancelled = true;
                    NativeMethods.PosCancel();
                    m_again = new Timer(state => Again(), null, 1000, 1000);
                }
            }

            void Again()
            {
                lock (this)
                    if (!m_ended)
                        NativeMethods.PosCancel();
            }

            // Whether a cancel was sent.
            public bool End()
            {
                lock (this) {
                    m_ended = true;
                    if (m_again != null)
                        m_again.Dispose();
                    return m_cancelled;
                }
            }
        }

        static void Check(string operation, int result)
        {
            if (result == 110)
                throw new PortUnavailableException(operation);
            if (result == 1538)
                throw new NoTerminalException(operation);
            if (result != 0)
                throw new VarnikException(operation, result, Failure.None, "unexpected result");
        }

        // A zeroed buffer with a mark where a 110-byte text would put its NUL.
        static byte[] TextBuffer(int size)
        {
            byte[] buffer = new byte[size];
            buffer[Ambiguous] = Untouched;
            return buffer;
        }

        static string TextOf(string operation, int result, byte[] buffer)
        {
            if (result == Ambiguous && buffer[Ambiguous] == Untouched)
                throw new PortUnavailableException(operation);
            return Utf8.GetString(buffer, 0, LengthOf(buffer));
        }

        static int LengthOf(byte[] buffer)
        {
            int length = Array.IndexOf(buffer, (byte)0);
            return length < 0 ? buffer.Length : length;
        }

        static byte[] Slice(byte[] buffer, int start, int count)
        {
            byte[] part = new byte[count];
            Array.Copy(buffer, start, part, 0, count);
            return part;
        }

        static byte[] Terminated(string text)
        {
            byte[] bytes = new byte[Utf8.GetByteCount(text) + 1];
            Utf8.GetBytes(text, 0, text.Length, bytes, 0);
            return bytes;
        }

        // How many bytes ThaiLen's work area takes for a UTF-8 text: a Thai character's
        // three bytes (E0 ..) become one.
        static int Tis620Length(byte[] terminated)
        {
            int count = 0;
            for (int i = 0; i < terminated.Length - 1; i += terminated[i] == 0xE0 ? 3 : 1)
                ++count;
            return count;
        }

        static void RequireMode(int mode, bool binary)
        {
            if (((mode & 3) >= 2) != binary)
                throw new ArgumentException(binary ? "the block form needs mode & 3 of 2 or 3"
                                                   : "the text form needs mode & 3 of 0 or 1", "mode");
        }

        static string UploadCommand(string hostFile)
        {
            RequireText(hostFile, "hostFile");
            // The library reports a file it cannot open as success; tell it here instead.
            if (!File.Exists(hostFile))
                throw new FileNotFoundException("no file to upload", hostFile);
            return Command("FILE", "write", "file", Path.GetFullPath(hostFile));
        }

        static string DeleteCommand(string name)
        {
            RequireText(name, "name");
            return Command("FILE", "del", "file", name);
        }

        static void RequireText(string text, string name)
        {
            if (text == null)
                throw new ArgumentNullException(name);
            if (text.Length == 0)
                throw new ArgumentException("empty", name);
        }

        static void RequireKey(byte[] key)
        {
            if (key == null)
                throw new ArgumentNullException("key");
            if (key.Length != 16)
                throw new ArgumentException("a master key is 16 bytes", "key");
        }

        static byte[] PromptText(string prompt)
        {
            if (prompt == null)
                throw new ArgumentNullException("prompt");
            // An "@" input is a terminal script request, not a prompt.
            if (prompt.StartsWith("@", StringComparison.Ordinal))
                throw new ArgumentException("a prompt may not begin with '@'", "prompt");
            return Terminated(prompt);
        }

        static string Command(string format, string cmd, string key, string value)
        {
            var json = new StringBuilder("{\"format\":\"" + format + "\",\"cmd\":\"" + cmd + "\"");
            if (key != null)
                json.Append(",\"" + key + "\":\"" + JsonEscaped(value ?? "") + "\"");
            return json.Append('}').ToString();
        }

        static string JsonEscaped(string text)
        {
            var escaped = new StringBuilder(text.Length);
            foreach (char c in text) {
                if (c == '"' || c == '\\')
                    escaped.Append('\\').Append(c);
                else if (c < 0x20)
                    escaped.AppendFormat("\\u{0:x4}", (int)c);
                else
                    escaped.Append(c);
            }
            return escaped.ToString();
        }
    }
}
