# Functions over varnelctl --json. A run that ends with another status than 0 is an error whose identifier is
# VarnelExitN and whose target is the document; with -ErrorAction Stop it is thrown. What lists something gives its
# entries, everything else the whole document (docs/json.md).
Set-StrictMode -Version 2

# Beside the module in an installation (share\varnel\powershell\varnel and bin), else from the PATH.
function Find-Program {
    $beside = Join-Path $PSScriptRoot '..\..\..\..\bin\varnelctl.exe'
    if (Test-Path -LiteralPath $beside) { return (Resolve-Path -LiteralPath $beside).ProviderPath }
    (Get-Command -Name varnelctl -CommandType Application -ErrorAction Stop | Select-Object -First 1).Path
}

<#
.SYNOPSIS
Runs varnelctl with these arguments and gives its document as an object.
.EXAMPLE
(Invoke-Varnelctl writers --host sql-server.json).writers
#>
function Invoke-Varnelctl {
    param([Parameter(Mandatory, ValueFromRemainingArguments)][string[]] $ArgumentList)
    $program = Find-Program
    # A remote session has no console, and no encoding of it.
    $encoding = $null
    try {
        $before = [Console]::OutputEncoding
        [Console]::OutputEncoding = New-Object System.Text.UTF8Encoding $false
        $encoding = $before
    } catch { Write-Debug "The encoding stays as it is: $_" }
    try {
        # What it says to people on standard error is in the document, too; it must not end anything here.
        $text = & { $ErrorActionPreference = 'Continue'; & $program --json @ArgumentList 2>$null } | Out-String
        $status = $LASTEXITCODE
    } finally {
        if ($encoding) { [Console]::OutputEncoding = $encoding }
    }
    if (-not $text.Trim()) {
        Write-Error -Message "varnelctl ended with status $status and printed no document" -ErrorId "VarnelExit$status"
        return
    }
    $document = $text | ConvertFrom-Json
    if ($status -ne 0) {
        Write-Error -Message $document.result.message -ErrorId "VarnelExit$status" -TargetObject $document
    }
    $document
}

# The entries of a list in the document, if it came to that.
function Get-ListOf {
    param([string] $Key, [string[]] $ArgumentList)
    $document = Invoke-Varnelctl -ArgumentList $ArgumentList
    if ($document -and $document.PSObject.Properties[$Key]) { $document.$Key }
}

# The arguments that every function takes.
function Get-CommonArguments {
    param([string] $HostFile, [string] $StateFile)
    if ($HostFile) { '--host'; $HostFile }
    if ($StateFile) { '--state'; $StateFile }
}

<#
.SYNOPSIS
The writers of this host with their components and files.
#>
function Get-VarnelWriter {
    [CmdletBinding()]
    param([string] $HostFile, [string] $StateFile)
    Get-ListOf writers (@('writers') + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
The registered providers of this host.
#>
function Get-VarnelProvider {
    [CmdletBinding()]
    param([string] $HostFile, [string] $StateFile)
    Get-ListOf providers (@('providers') + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
The disks of this host with their serial numbers and volumes.
#>
function Get-VarnelDisk {
    [CmdletBinding()]
    param([string] $HostFile, [string] $StateFile)
    Get-ListOf disks (@('disks') + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
What a snapshot of these disks would hold and how it would end. Nothing is taken.
.EXAMPLE
Get-VarnelPlan -Application sql -Disk TSL0001, TSL0002
#>
function Get-VarnelPlan {
    [CmdletBinding()]
    param(
        [Parameter(Mandatory)][ValidateSet('none', 'sql', 'exchange', 'hyperv')][string] $Application,
        [Parameter(Mandatory)][string[]] $Disk,
        [string[]] $Require,
        [string] $HostFile,
        [string] $StateFile)
    $words = @('plan', '--app', $Application, '--disk') + $Disk
    if ($Require) { $words += @('--require') + $Require }
    Invoke-Varnelctl -ArgumentList ($words + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
What on this host would make a snapshot fail or incomplete, each with its remedy. Nothing is changed.
.EXAMPLE
(Test-VarnelHost -Application sql -Disk TSL0001, TSL0002 -ErrorAction SilentlyContinue).findings
#>
function Test-VarnelHost {
    [CmdletBinding()]
    param(
        [ValidateSet('none', 'sql', 'exchange', 'hyperv')][string] $Application,
        [string[]] $Disk,
        [string] $HostFile,
        [string] $StateFile)
    $words = @('doctor')
    if ($Application) { $words += '--app', $Application }
    if ($Disk) { $words += @('--disk') + $Disk }
    Invoke-Varnelctl -ArgumentList ($words + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
Writes this host as a host file with its writers' documents, to be replayed anywhere.
.EXAMPLE
Export-VarnelHost C:\Temp\host -Anonymise
#>
function Export-VarnelHost {
    [CmdletBinding()]
    param([Parameter(Mandatory)][string] $Folder, [switch] $Anonymise, [string] $HostFile, [string] $StateFile)
    $words = @('capture', $Folder)
    if ($Anonymise) { $words += '--anonymise' }
    Invoke-Varnelctl -ArgumentList ($words + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
Takes a snapshot set of these disks.
.EXAMPLE
New-VarnelSnapshotSet -Application sql -Disk TSL0001, TSL0002 -Context app-rollback -ErrorAction Stop
#>
function New-VarnelSnapshotSet {
    [CmdletBinding(SupportsShouldProcess)]
    param(
        [Parameter(Mandatory)][ValidateSet('none', 'sql', 'exchange', 'hyperv')][string] $Application,
        [Parameter(Mandatory)][string[]] $Disk,
        [string] $Context,
        [ValidateSet('keep', 'break', 'mask', 'delete')][string] $Then = 'keep',
        [string[]] $Require,
        [string] $Report,
        [string] $Evidence,
        [int] $DeadlineSeconds,
        [switch] $Verify,
        [switch] $Disconnect,
        [switch] $AcceptExtraVolumes,
        [switch] $EventLog,
        [string] $HostFile,
        [string] $StateFile)
    if (-not $PSCmdlet.ShouldProcess($Disk -join ', ', "snapshot for $Application")) { return }
    $words = @('snapshot', '--app', $Application, '--then', $Then, '--disk') + $Disk
    if ($Require) { $words += @('--require') + $Require }
    if ($Context) { $words += '--context', $Context }
    if ($Report) { $words += '--report', $Report }
    if ($Evidence) { $words += '--evidence', $Evidence }
    if ($DeadlineSeconds) { $words += '--deadline', "$DeadlineSeconds" }
    if ($Verify) { $words += '--verify' }
    if ($Disconnect) { $words += '--disconnect' }
    if ($AcceptExtraVolumes) { $words += '--accept-extra-volumes' }
    if ($EventLog) { $words += '--event-log' }
    Invoke-Varnelctl -ArgumentList ($words + @(Get-CommonArguments $HostFile $StateFile))
}

<#
.SYNOPSIS
The snapshot sets that this host or the journal knows; with -Id one of them and what it is made of.
#>
function Get-VarnelSnapshotSet {
    [CmdletBinding()]
    param(
        [Parameter(ValueFromPipelineByPropertyName)][Alias('setId', 'snapshotSetId')][string] $Id,
        [string] $HostFile,
        [string] $StateFile)
    process {
        $common = @(Get-CommonArguments $HostFile $StateFile)
        if ($Id) { Invoke-Varnelctl -ArgumentList (@('sets', 'show', $Id) + $common) }
        else { Get-ListOf sets (@('sets', 'list') + $common) }
    }
}

<#
.SYNOPSIS
Deletes a snapshot set. -WhatIf asks varnelctl what would be done.
#>
function Remove-VarnelSnapshotSet {
    [CmdletBinding(SupportsShouldProcess, ConfirmImpact = 'High')]
    param(
        [Parameter(Mandatory, ValueFromPipelineByPropertyName)][Alias('setId', 'snapshotSetId')][string] $Id,
        [switch] $Force,
        [string] $HostFile,
        [string] $StateFile)
    process {
        $words = @('sets', 'delete', $Id) + @(Get-CommonArguments $HostFile $StateFile)
        if ($Force) { $words += '--force' }
        if (-not $PSCmdlet.ShouldProcess($Id, 'delete the snapshot set')) { $words += '--dry-run' }
        Invoke-Varnelctl -ArgumentList $words
    }
}

<#
.SYNOPSIS
Ends what requests have left whose process died. -WhatIf asks varnelctl what would be done.
#>
function Clear-VarnelSnapshotSet {
    [CmdletBinding(SupportsShouldProcess)]
    param([string] $HostFile, [string] $StateFile)
    $words = @('sets', 'clean-up') + @(Get-CommonArguments $HostFile $StateFile)
    if (-not $PSCmdlet.ShouldProcess('what dead requests have left', 'end')) { $words += '--dry-run' }
    Invoke-Varnelctl -ArgumentList $words
}

<#
.SYNOPSIS
What an exit status, alert code, HRESULT or alert record means, and what to do.
.EXAMPLE
Get-VarnelExplanation exit:12
#>
function Get-VarnelExplanation {
    [CmdletBinding()]
    param([Parameter(Mandatory, ValueFromPipeline)][string] $Question)
    process { Get-ListOf explained @('explain', $Question) }
}

<#
.SYNOPSIS
Makes one HTML page of documents that varnelctl --json printed.
#>
function ConvertTo-VarnelReport {
    [CmdletBinding()]
    param([Parameter(Mandatory)][string[]] $RunFile, [Parameter(Mandatory)][string] $Output)
    Invoke-Varnelctl -ArgumentList (@('report') + $RunFile + @('--output', $Output))
}

& (Find-Program) completion powershell | Out-String | Invoke-Expression

Export-ModuleMember -Function *-Varnel*
