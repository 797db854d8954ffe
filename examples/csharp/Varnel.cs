// varnel-c.h for C#: the functions as they are, and the structures with their members in order. Put varnel-c.dll beside
// the program, which must be 64-bit.
using System;
using System.Runtime.InteropServices;
using System.Text;

public static class VarnelCode
{
    public const int Done = 0, BadArgument = 1, BadHandle = 2, BadVersion = 3, BadText = 4, BadOrder = 5, Busy = 6;
    public const int NoMemory = 7, NoHost = 8, CallFailed = 9, ComTooLate = 10, Unexpected = 11;
    public const int WriterFailure = 600, PartialSuccess = 601, ConfigurationError = 602;
    public const int VerificationFailure = 603, ExtraVolumes = 701;
}

public enum VarnelApplication { None = 0, SqlServer = 1, Exchange = 2, HyperV = 3 }

[StructLayout(LayoutKind.Sequential)]
public struct VarnelRequestOptions
{
    public UIntPtr Size;
    public int Application;
    public uint Context;
    public int BackupType;
    public int Restore;
    public int SkipDatabaseVerification;
    public int WriterCode;
    public uint TestPoints;
    public IntPtr Document;
    public IntPtr ProviderId;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelOutcome
{
    public UIntPtr Size;
    public int Code;
    public int Hresult;
    public int BackupStatus;
    public UIntPtr DetailCount;
    public IntPtr Message;
    public IntPtr Details;
    public IntPtr AlertRecords;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelSnapshot
{
    public UIntPtr Size;
    public IntPtr Volume;
    public IntPtr SnapshotId;
    public IntPtr Device;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelWriter
{
    public UIntPtr Size;
    public IntPtr Name;
    public IntPtr WriterId;
    public IntPtr InstanceId;
    public UIntPtr ComponentCount;
    public UIntPtr ExcludedFileCount;
    public int Excluded;
    public int WriterRestore;
    public int RestoreInvolvesWriter;
    public int RestoreMethod;
    public int RebootRequiredAfterRestore;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelComponent
{
    public UIntPtr Size;
    public IntPtr Name;
    public IntPtr LogicalPath;
    public IntPtr FullPath;
    public IntPtr Caption;
    public IntPtr Disks;
    public UIntPtr DiskCount;
    public UIntPtr FileCount;
    public int Type;
    public int Selectable;
    public int NotifyOnBackupComplete;
    public int TopLevel;
    public int Excluded;
    public int Added;
    public int Failed;
    public int FailureCode;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelFile
{
    public UIntPtr Size;
    public IntPtr Path;
    public IntPtr ExpandedPath;
    public IntPtr Filespec;
    public IntPtr PathOnVolume;
    public IntPtr Volume;
    public IntPtr SnapshotDevice;
    public IntPtr SnapshotDisk;
    public IntPtr SnapshotSerialNumber;
    public int Type;
}

[StructLayout(LayoutKind.Sequential)]
public struct VarnelCatalogDisk
{
    public UIntPtr Size;
    public IntPtr SerialNumber;
    public UIntPtr ObjectCount;
    public IntPtr ObjectIds;
    public IntPtr ObjectNames;
    public UIntPtr OtherCount;
    public IntPtr OtherIds;
    public IntPtr OtherNames;
}

public static class Varnel
{
    private const string Library = "varnel-c";

    [UnmanagedFunctionPointer(CallingConvention.Cdecl)]
    public delegate void LogFunction(IntPtr user, int category, IntPtr source, int line, IntPtr text);

    [DllImport(Library)] public static extern int varnel_version();
    [DllImport(Library)] public static extern IntPtr varnel_version_text();
    [DllImport(Library)] public static extern int varnel_interface();
    [DllImport(Library)] public static extern IntPtr varnel_code_text(int code);
    [DllImport(Library)] public static extern int varnel_initialize_com(out int hresult);
    [DllImport(Library)] public static extern int varnel_uninitialize_com();
    [DllImport(Library)] public static extern int varnel_set_log(LogFunction function, IntPtr user, int lowestCategory);

    [DllImport(Library)] public static extern int varnel_request_create(ref VarnelRequestOptions options, out IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_free(IntPtr request);

    [DllImport(Library)] public static extern int varnel_request_set_provider(IntPtr request, byte[] providerId);
    [DllImport(Library)] public static extern int varnel_request_add_disks(IntPtr request, IntPtr[] serialNumbers, UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_validate_host(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_validate_volumes(IntPtr request, IntPtr[] volumes, UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_find_provider(IntPtr request, out int found);
    [DllImport(Library)] public static extern int varnel_request_find_writer(IntPtr request, out int found);
    [DllImport(Library)] public static extern int varnel_request_find_disk(IntPtr request, byte[] serialNumber, out int found);
    [DllImport(Library)] public static extern int varnel_request_read_disks(IntPtr request, out IntPtr serialNumbers, out UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_initialize(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_gather(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_snapshot(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_verify(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_read_catalog(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_complete(IntPtr request, int backupStatus);
    [DllImport(Library)] public static extern int varnel_request_break(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_mask(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_delete(IntPtr request);
    [DllImport(Library)] public static extern int varnel_request_disconnect(IntPtr request);

    [DllImport(Library)] public static extern int varnel_request_get_outcome(IntPtr request, ref VarnelOutcome outcome);
    [DllImport(Library)] public static extern int varnel_request_get_alert_records(IntPtr request, out IntPtr records);
    [DllImport(Library)] public static extern int varnel_request_get_set_id(IntPtr request, out IntPtr setId);
    [DllImport(Library)] public static extern int varnel_request_get_document(IntPtr request, out IntPtr document);
    [DllImport(Library)] public static extern int varnel_request_get_databases(IntPtr request, out IntPtr databases);
    [DllImport(Library)] public static extern int varnel_request_get_snapshot_count(IntPtr request, out UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_get_snapshot(IntPtr request, UIntPtr index, ref VarnelSnapshot snapshot);
    [DllImport(Library)] public static extern int varnel_request_get_writer_count(IntPtr request, out UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_get_writer(IntPtr request, UIntPtr index, ref VarnelWriter writer);
    [DllImport(Library)] public static extern int varnel_request_get_excluded_file(IntPtr request, UIntPtr writer, UIntPtr index, ref VarnelFile file);
    [DllImport(Library)] public static extern int varnel_request_get_component(IntPtr request, UIntPtr writer, UIntPtr index, ref VarnelComponent component);
    [DllImport(Library)] public static extern int varnel_request_get_file(IntPtr request, UIntPtr writer, UIntPtr component, UIntPtr index, ref VarnelFile file);
    [DllImport(Library)] public static extern int varnel_request_get_catalog_count(IntPtr request, out UIntPtr count);
    [DllImport(Library)] public static extern int varnel_request_get_catalog_disk(IntPtr request, UIntPtr index, ref VarnelCatalogDisk disk);

    /// UTF-8 with its NUL, for a text that is handed in.
    public static byte[] Utf8(string text)
    {
        return Encoding.UTF8.GetBytes(text + "\0");
    }

    /// A text that was handed out.
    public static string Text(IntPtr utf8)
    {
        int length = 0;
        while (Marshal.ReadByte(utf8, length) != 0) ++length;
        var bytes = new byte[length];
        Marshal.Copy(utf8, bytes, 0, length);
        return Encoding.UTF8.GetString(bytes);
    }

    /// The size that a structure begins with.
    public static UIntPtr SizeOf<T>() where T : struct
    {
        return (UIntPtr)Marshal.SizeOf(typeof(T));
    }
}
