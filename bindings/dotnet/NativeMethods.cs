// The raw layer: every C export of the library, as it is. Buffers are byte arrays so that the
// caller picks the encoding and the size; Terminal does both for you.
//
// The name is "varnik": Windows loads varnik.dll, which is Varnik.dll on its case-blind file
// system (x86: __stdcall, which is what StdCall below says; x64 ignores it); .NET on Linux
// probes libvarnik.so by itself; Mono maps it through Varnik.Net.dll.config beside the
// assembly. The two CBrelmat operators are C++ members with no use and are not declared.
using System.Runtime.InteropServices;

namespace Varnik
{
    /// <summary>
    /// Every C export of the library as it is: byte buffers, the caller sizes them (see
    /// include/varnik.h for the most each export writes). <see cref="Terminal"/> does that for you.
    /// </summary>
    public static class NativeMethods
    {
        /// <summary>The library name the declarations load: Varnik.dll, libvarnik.so.</summary>
        public const string Library = "varnik";

        /// <summary>Probes the terminal on the configured port: 0, 110 (no port) or 1538 (no answer).</summary>
        [DllImport(Library, EntryPoint = "PosSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosSelect();

        /// <summary>The same routine as <see cref="PosSelect"/>.</summary>
        [DllImport(Library, EntryPoint = "PinSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinSelect();

        /// <summary>The same routine as <see cref="PosSelect"/>.</summary>
        [DllImport(Library, EntryPoint = "MsreSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreSelect();

        /// <summary>Probes COM<c>port</c>; on success the library writes it to config/varnik.json. 0, 110 or 1538.</summary>
        [DllImport(Library, EntryPoint = "PosCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosCheckPort(int port);

        /// <summary>The same routine as <see cref="PosCheckPort"/>.</summary>
        [DllImport(Library, EntryPoint = "PinCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinCheckPort(int port);

        /// <summary>The same routine as <see cref="PosCheckPort"/>.</summary>
        [DllImport(Library, EntryPoint = "MsreCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreCheckPort(int port);

        /// <summary>Asks the waiting call to send the terminal one cancel; safe from any thread. Always 0.</summary>
        [DllImport(Library, EntryPoint = "PosCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosCancel();

        /// <summary>The same routine as <see cref="PosCancel"/>.</summary>
        [DllImport(Library, EntryPoint = "PinCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinCancel();

        /// <summary>The same routine as <see cref="PosCancel"/>.</summary>
        [DllImport(Library, EntryPoint = "MsreCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreCancel();

        /// <summary>The terminal's version text into <c>output</c> (204800 bytes): its length, or 110.</summary>
        [DllImport(Library, EntryPoint = "getVersion", CallingConvention = CallingConvention.StdCall)]
        public static extern int getVersion([In, Out] byte[] output);

        /// <summary>Runs a command script; <c>output</c>: 204800 bytes, <c>command</c>: NUL-terminated.</summary>
        [DllImport(Library, EntryPoint = "PosExec", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosExec([In, Out] byte[] output, [In] byte[] command);

        /// <summary>Loads the master key: 16 raw key bytes in, the reply out (204800 bytes).</summary>
        [DllImport(Library, EntryPoint = "PinLoadMK", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinLoadMK([In, Out] byte[] key);

        /// <summary>PIN entry: the decoded reply into <c>output</c>, a NUL at [16] always.</summary>
        [DllImport(Library, EntryPoint = "PinReadKey", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinReadKey([In, Out] byte[] output);

        /// <summary>PIN entry with a prompt: the prompt in, 8 bytes and a NUL out (the reply text for "@" requests).</summary>
        [DllImport(Library, EntryPoint = "PinReadKeyClear", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinReadKeyClear([In, Out] byte[] inOut);

        /// <summary>Reads the stripe: the track text into <c>output</c> (204800 bytes and a few); its length, or 110.</summary>
        [DllImport(Library, EntryPoint = "MsreRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreRead([In, Out] byte[] output);

        /// <summary>Clears the first byte of <c>buffer</c>; nothing else.</summary>
        [DllImport(Library, EntryPoint = "MsreWrite", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreWrite([In, Out] byte[] buffer);

        /// <summary>Reads the chip card's EMV tags as text into <c>output</c> (204800 bytes): its length, or 110.</summary>
        [DllImport(Library, EntryPoint = "EMVRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int EMVRead([In, Out] byte[] output);

        /// <summary>Reads the Thai ID card; <c>output</c> needs three times 204800 bytes and one in text form.</summary>
        [DllImport(Library, EntryPoint = "ThaiIDRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int ThaiIDRead([In, Out] byte[] output, int mode);

        /// <summary>The display columns of a NUL-terminated UTF-8 Thai text. Needs no terminal.</summary>
        [DllImport(Library, EntryPoint = "ThaiLen", CallingConvention = CallingConvention.StdCall)]
        public static extern int ThaiLen([In] byte[] text);

        /// <summary>Puts the terminal's card slot in front of this process's PC/SC calls: 0, -1, 110 or 1538.</summary>
        [DllImport(Library, EntryPoint = "ReaderSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int ReaderSelect();
    }
}
