// The raw layer: every C export of the library, as it is. Buffers are byte arrays so that the
// caller picks the encoding and the size; Terminal does both for you.
//
// Windows loads Varnik.dll (x86: __stdcall, which is what StdCall below says; x64 ignores it).
// On Linux, Mono maps "Varnik" to libvarnik.so through Varnik.Net.dll.config beside the
// assembly. The two CBrelmat operators are C++ members with no use and are not declared.
using System.Runtime.InteropServices;

namespace Varnik
{
    public static class NativeMethods
    {
        public const string Library = "Varnik";

        // Terminal session
        [DllImport(Library, EntryPoint = "PosSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosSelect();

        [DllImport(Library, EntryPoint = "PinSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinSelect();

        [DllImport(Library, EntryPoint = "MsreSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreSelect();

        [DllImport(Library, EntryPoint = "PosCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosCheckPort(int port);

        [DllImport(Library, EntryPoint = "PinCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinCheckPort(int port);

        [DllImport(Library, EntryPoint = "MsreCheckPort", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreCheckPort(int port);

        // Safe to call from any thread while another call waits.
        [DllImport(Library, EntryPoint = "PosCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosCancel();

        [DllImport(Library, EntryPoint = "PinCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinCancel();

        [DllImport(Library, EntryPoint = "MsreCancel", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreCancel();

        // out: 204800 bytes. Result: the text's length, or 110.
        [DllImport(Library, EntryPoint = "getVersion", CallingConvention = CallingConvention.StdCall)]
        public static extern int getVersion([In, Out] byte[] output);

        // Command scripts. output: 204800 bytes; command: NUL-terminated.
        [DllImport(Library, EntryPoint = "PosExec", CallingConvention = CallingConvention.StdCall)]
        public static extern int PosExec([In, Out] byte[] output, [In] byte[] command);

        // PIN pad. key: 16 raw key bytes in, the reply out (204800 bytes).
        [DllImport(Library, EntryPoint = "PinLoadMK", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinLoadMK([In, Out] byte[] key);

        // output: the decoded PIN reply, a NUL at [16] always.
        [DllImport(Library, EntryPoint = "PinReadKey", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinReadKey([In, Out] byte[] output);

        // inOut: the prompt in; 8 bytes and a NUL out (the reply text for "@" requests).
        [DllImport(Library, EntryPoint = "PinReadKeyClear", CallingConvention = CallingConvention.StdCall)]
        public static extern int PinReadKeyClear([In, Out] byte[] inOut);

        // Magnetic stripe. output: 204800 bytes and a few for the track notation.
        [DllImport(Library, EntryPoint = "MsreRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreRead([In, Out] byte[] output);

        [DllImport(Library, EntryPoint = "MsreWrite", CallingConvention = CallingConvention.StdCall)]
        public static extern int MsreWrite([In, Out] byte[] buffer);

        // Chip card. EMVRead: 204800 bytes. ThaiIDRead: three times that and one in text form.
        [DllImport(Library, EntryPoint = "EMVRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int EMVRead([In, Out] byte[] output);

        [DllImport(Library, EntryPoint = "ThaiIDRead", CallingConvention = CallingConvention.StdCall)]
        public static extern int ThaiIDRead([In, Out] byte[] output, int mode);

        // text: UTF-8, NUL-terminated. Needs no terminal.
        [DllImport(Library, EntryPoint = "ThaiLen", CallingConvention = CallingConvention.StdCall)]
        public static extern int ThaiLen([In] byte[] text);

        // The terminal's card slot as this process's PC/SC reader.
        [DllImport(Library, EntryPoint = "ReaderSelect", CallingConvention = CallingConvention.StdCall)]
        public static extern int ReaderSelect();
    }
}
