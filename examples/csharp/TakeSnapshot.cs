// A snapshot set of the SQL Server databases on some disks of the array: TakeSnapshot.exe SERIAL...
using System;
using System.Linq;
using System.Runtime.InteropServices;
using System.Text;

public static class TakeSnapshot
{
    // What became of the last step. Returns what the completion is to be told of it.
    private static int Tell(IntPtr request, string step)
    {
        var outcome = new VarnelOutcome { Size = Varnel.SizeOf<VarnelOutcome>() };
        if (Varnel.varnel_request_get_outcome(request, ref outcome) != VarnelCode.Done) return -1;
        if (outcome.Code == VarnelCode.Done) return 0;
        Console.WriteLine(step + ": " + Varnel.Text(outcome.Message));
        for (int i = 0; i < (int)outcome.DetailCount; ++i)
            Console.WriteLine("  " + Varnel.Text(Marshal.ReadIntPtr(outcome.Details, i * IntPtr.Size)));
        Console.WriteLine("  for the array: " + Varnel.Text(outcome.AlertRecords));
        return outcome.BackupStatus;
    }

    private static int AddDisks(IntPtr request, string[] serialNumbers)
    {
        var handles = serialNumbers.Select(serial => GCHandle.Alloc(Varnel.Utf8(serial), GCHandleType.Pinned)).ToArray();
        var texts = handles.Select(handle => handle.AddrOfPinnedObject()).ToArray();
        int code = Varnel.varnel_request_add_disks(request, texts, (UIntPtr)texts.Length);
        foreach (var handle in handles) handle.Free();
        return code;
    }

    private static int Run(string[] serialNumbers)
    {
        var options = new VarnelRequestOptions
        {
            Size = Varnel.SizeOf<VarnelRequestOptions>(),
            Application = (int)VarnelApplication.SqlServer,
            Context = 9 // VARNEL_CONTEXT_APP_ROLLBACK
        };
        IntPtr request;
        int code = Varnel.varnel_request_create(ref options, out request);
        if (code != VarnelCode.Done) return code;
        code = AddDisks(request, serialNumbers);
        if (code == VarnelCode.Done) code = Varnel.varnel_request_initialize(request);
        if (code == VarnelCode.Done) code = Varnel.varnel_request_snapshot(request);
        int completed = Varnel.varnel_request_complete(request, Tell(request, "the snapshot"));
        if (completed != VarnelCode.BadOrder) Tell(request, "the completion");
        IntPtr setId;
        Varnel.varnel_request_get_set_id(request, out setId);
        if (code == VarnelCode.Done) Console.WriteLine("set " + Varnel.Text(setId));
        Varnel.varnel_request_free(request);
        return code == VarnelCode.Done ? completed : code;
    }

    // .NET makes the main thread an apartment of its own choice, and may set COM's security before anybody else can.
    [MTAThread]
    public static int Main(string[] serialNumbers)
    {
        int hresult;
        int com = Varnel.varnel_initialize_com(out hresult);
        if (com != VarnelCode.Done)
        {
            Console.Error.WriteLine("COM: " + Varnel.Text(Varnel.varnel_code_text(com)) + " 0x" + hresult.ToString("x8"));
            return 1;
        }
        int code = Run(serialNumbers);
        Varnel.varnel_uninitialize_com();
        return code == VarnelCode.Done ? 0 : 1;
    }
}
