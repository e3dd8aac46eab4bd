<#
.SYNOPSIS
Runs kelvo's tests on a real Windows machine, with what Wine can't show, and prints a table.

.DESCRIPTION
Makes two throw-away virtual disks: one gets a letter, which the tests record on and empty, the other
is mounted at a folder. Sets the time zone of the tests, and trusts an authority of its own for the
test of TLS. All of it is taken back at the end, also after a failure or Ctrl+C. Needs Windows 10 or
Server 2016 or later with one fixed drive, an administrator's PowerShell (5.1 or later) and 5 GB.

.PARAMETER Programs
The folder with kelvo.dll, kelvo_seams.dll and kelvo_tests_*.exe.

.PARAMETER Work
A folder that doesn't exist yet, without '-' and blanks in its path. It is removed at the end.

.PARAMETER Letter
A drive letter that is free.

.EXAMPLE
powershell -ExecutionPolicy Bypass -File check.ps1 -Programs C:\kelvo
#>
param(
  [Parameter(Mandatory = $true)][string]$Programs,
  [string]$Work = 'C:\kelvocheck',
  [ValidatePattern('^[D-Z]$')][string]$Letter = 'R'
)
$ErrorActionPreference = 'Stop'
Set-StrictMode -Version 2

$Programs = (Resolve-Path -LiteralPath $Programs).ProviderPath
$disks = @()
$certificates = @()
$zone = $null
$server = $null
$made = $false
$rows = New-Object System.Collections.ArrayList

function Add-Row([string]$check, [string]$result, [string]$expected) {
  [void]$rows.Add([pscustomobject]@{ Check = $check; Result = $result; Expected = $expected })
  Write-Host ('{0}: {1}' -f $check, $result)
}

# Runs a program; returns its exit code. Its output goes to a file and to the caller's variable.
function Invoke-Test([string]$name, [string]$filter) {
  $log = Join-Path $Work ($name + '.log')
  $program = Join-Path $Programs ($name + '.exe')
  $process = Start-Process -FilePath $program -ArgumentList ('--gtest_filter=' + $filter) `
    -WorkingDirectory $Programs -NoNewWindow -PassThru -RedirectStandardOutput $log `
    -RedirectStandardError ($log + '.err')
  $null = $process.Handle # else the exit code is lost
  if (-not $process.WaitForExit(3600000)) {
    $process.Kill()
    $process.WaitForExit()
  }
  $script:output = @(Get-Content -LiteralPath $log)
  return $process.ExitCode
}

function Get-Count([string]$pattern) {
  foreach ($line in $script:output) {
    if ($line -match $pattern) { return [int]$Matches[1] }
  }
  return 0
}

# One row for what the filter names; "skipped" when nothing was prepared for it.
function Test-Program([string]$check, [string]$name, [string]$filter) {
  if (-not (Test-Path -LiteralPath (Join-Path $Programs ($name + '.exe')))) {
    Add-Row $check "FAILED: no $name.exe" 'passed'
    return
  }
  $code = Invoke-Test $name $filter
  $passed = Get-Count '^\[  PASSED  \] (\d+) test'
  $failed = @($script:output | Where-Object { $_ -match '^\[  FAILED  \] \S+\.\S+ \(' })
  if ($code -ne 0) {
    $names = ($failed | ForEach-Object { ($_ -split ' ')[5] }) -join ' '
    Add-Row $check "FAILED: exit code $code $names" 'passed'
  } elseif ($passed -eq 0) {
    Add-Row $check 'skipped' 'passed'
  } else {
    Add-Row $check "passed ($passed)" 'passed'
  }
}

function Invoke-DiskPart([string[]]$commands) {
  $script = Join-Path $Work 'diskpart.txt'
  Set-Content -LiteralPath $script -Value $commands -Encoding Ascii
  $text = & diskpart.exe /s $script
  if ($LASTEXITCODE -ne 0) { throw ("diskpart failed:`n" + ($text -join "`n")) }
}

function New-Disk([string]$file, [string]$assign) {
  $script:disks += $file
  Invoke-DiskPart @("create vdisk file=`"$file`" maximum=4096 type=expandable",
    "select vdisk file=`"$file`"", 'attach vdisk', 'convert mbr noerr',
    'create partition primary',
    'format fs=ntfs quick label=kelvo', $assign)
}

function Remove-Disk([string]$file) {
  if (-not (Test-Path -LiteralPath $file)) { return }
  try { Invoke-DiskPart @("select vdisk file=`"$file`"", 'detach vdisk') } catch {
    Write-Warning "$_"
  }
}

# An authority without a revocation list, a certificate of it for localhost, and a server that
# answers every request with 404.
function Start-Server {
  $store = 'Cert:\LocalMachine\My'
  $authority = New-SelfSignedCertificate -Type Custom -Subject 'CN=kelvo check authority' `
    -KeyUsage CertSign, CRLSign, DigitalSignature -CertStoreLocation $store `
    -TextExtension @('2.5.29.19={critical}{text}ca=1&pathlength=1') `
    -NotAfter (Get-Date).AddDays(2)
  $script:certificates += "$store\$($authority.Thumbprint)"
  $leaf = New-SelfSignedCertificate -Type Custom -Subject 'CN=localhost' -Signer $authority `
    -KeyUsage DigitalSignature, KeyEncipherment -CertStoreLocation $store `
    -TextExtension @('2.5.29.17={text}dns=localhost&dns=bucket.localhost',
      '2.5.29.37={text}1.3.6.1.5.5.7.3.1') -NotAfter (Get-Date).AddDays(2)
  $script:certificates += "$store\$($leaf.Thumbprint)"
  $file = Join-Path $Work 'authority.cer'
  [void](Export-Certificate -Cert $authority -FilePath $file)
  $root = Import-Certificate -FilePath $file -CertStoreLocation 'Cert:\LocalMachine\Root'
  $script:certificates += "Cert:\LocalMachine\Root\$($root.Thumbprint)"
  $ready = Join-Path $Work 'port.txt'
  $script:server = Start-Job -ArgumentList $leaf.Thumbprint, $ready -ScriptBlock {
    param($thumbprint, $ready)
    $certificate = Get-Item "Cert:\LocalMachine\My\$thumbprint"
    $listener = New-Object Net.Sockets.TcpListener ([Net.IPAddress]::Loopback, 0)
    $listener.Start()
    Set-Content -LiteralPath $ready -Value $listener.LocalEndpoint.Port
    $answer = [Text.Encoding]::ASCII.GetBytes(
      "HTTP/1.1 404 Not Found`r`nContent-Length: 0`r`nConnection: close`r`n`r`n")
    while ($true) {
      # A job that is blocked in a call can't be stopped.
      while (-not $listener.Pending()) { Start-Sleep -Milliseconds 50 }
      $client = $listener.AcceptTcpClient()
      try {
        $stream = New-Object Net.Security.SslStream ($client.GetStream(), $false)
        $stream.AuthenticateAsServer($certificate, $false,
          [Security.Authentication.SslProtocols]::Tls12, $false)
        $buffer = New-Object byte[] 65536
        [void]$stream.Read($buffer, 0, $buffer.Length)
        $stream.Write($answer, 0, $answer.Length)
        $stream.Flush()
      } catch {
      } finally {
        $client.Close()
      }
    }
  }
  for ($i = 0; $i -lt 100; $i++) {
    $port = Get-Content -LiteralPath $ready -ErrorAction SilentlyContinue
    if ($port) { return "https://localhost:$port" }
    Start-Sleep -Milliseconds 300
  }
  throw 'the TLS server did not start'
}

# A settings file whose content the system keeps elsewhere, where it can deduplicate.
function New-DeduplicatedFile {
  if (-not (Get-Command Enable-DedupVolume -ErrorAction SilentlyContinue)) { return '' }
  $volume = $Letter + ':'
  [void](Enable-DedupVolume -Volume $volume)
  Set-DedupVolume -Volume $volume -MinimumFileAgeDays 0 -MinimumFileSize 32768
  $folder = New-Item -ItemType Directory -Path "$volume\dedup"
  $text = '<qDVR><!--' + ('kelvo ' * 40000) + '--></qDVR>'
  foreach ($name in 'one.xml', 'two.xml') {
    [IO.File]::WriteAllText((Join-Path $folder.FullName $name), $text)
  }
  [void](Start-DedupJob -Volume $volume -Type Optimization -Wait)
  return (Join-Path $folder.FullName 'one.xml')
}

function Set-Prepared([string]$name, [string]$value) {
  # An empty value removes the variable.
  [Environment]::SetEnvironmentVariable($name, $value, 'Process')
}

try {
  $identity = New-Object Security.Principal.WindowsPrincipal (
    [Security.Principal.WindowsIdentity]::GetCurrent())
  if (-not $identity.IsInRole([Security.Principal.WindowsBuiltInRole]::Administrator)) {
    throw 'Start this as an administrator.'
  }
  if (Test-Path -LiteralPath $Work) { throw "$Work exists already." }
  if ($Work -match '[- ]') { throw 'The path of -Work must have no blank and no hyphen.' }
  if (Test-Path -LiteralPath ($Letter + ':\')) { throw "$($Letter): is taken; see -Letter." }
  $fixed = @(Get-CimInstance Win32_LogicalDisk -Filter 'DriveType=3')
  if ($fixed.Count -ne 1) { throw 'The tests want no fixed drive besides the system''s.' }
  foreach ($name in 'kelvo.dll', 'kelvo_seams.dll') {
    if (-not (Test-Path -LiteralPath (Join-Path $Programs $name))) {
      throw "$name is not in $Programs."
    }
  }
  [void](New-Item -ItemType Directory -Path $Work, "$Work\tmp", "$Work\mount", "$Work\tree")
  $made = $true

  $zone = (& tzutil.exe /g)
  & tzutil.exe /s 'W. Europe Standard Time'
  New-Disk "$Work\letter.vhdx" "assign letter=$Letter"

  Set-Prepared 'TMP' "$Work\tmp"
  Set-Prepared 'TEMP' "$Work\tmp"
  Set-Prepared 'KELVO_TEST_DRIVE' "$($Letter):\"
  Set-Prepared 'KELVO_MODULES' $Programs
  Set-Prepared 'KELVO_RETENTION_FILES' '5000'

  $version = (Get-Item -LiteralPath (Join-Path $Programs 'kelvo.dll')).VersionInfo.FileVersion
  Add-Row 'version of kelvo.dll' "$version" 'a version'
  foreach ($name in 'platform', 'host', 'media', 'archiving', 'tree', 'storage', 'record', 'search',
    'shell', 'plugin') {
    Test-Program "tests: $name" "kelvo_tests_$name" '-RealMachine.*'
  }

  Test-Program 'files held by others' 'kelvo_tests_storage' 'HeldFiles.*'
  Test-Program 'read-only, held: platform' 'kelvo_tests_platform' 'DurableFilesTest.*'
  Test-Program 'long paths, any name' 'kelvo_tests_platform' '*NamesAreUtf8*:*AnyName*'

  # Only now: the system may give it a letter, too, and the tests of the plug-in count drives.
  New-Disk "$Work\folder.vhdx" "assign mount=`"$Work\mount`""
  Set-Prepared 'KELVO_MOUNT_FOLDER' "$Work\mount\"
  Set-Prepared 'KELVO_MOUNT_VOLUME' ((& mountvol.exe "$Work\mount\" /L) -join '').Trim()
  Test-Program 'mount folder' 'kelvo_tests_storage' 'RealMachine.MountFolder*'
  Set-Prepared 'KELVO_MOUNT_FOLDER' ''

  [void](New-Item -ItemType Directory -Path "$($Letter):\year2024")
  [void](New-Item -ItemType Junction -Path "$Work\tree\2024" -Value "$($Letter):\year2024")
  Set-Prepared 'KELVO_JUNCTION_ROOT' "$Work\tree\"
  Test-Program 'junction' 'kelvo_tests_storage' 'RealMachine.Junction*'
  Set-Prepared 'KELVO_JUNCTION_ROOT' ''
  [IO.Directory]::Delete("$Work\tree\2024") # the link alone

  Set-Prepared 'KELVO_DEDUPLICATED_XML' (New-DeduplicatedFile)
  Test-Program 'deduplicated file' 'kelvo_tests_storage' 'RealMachine.Deduplicated*'

  Set-Prepared 'KELVO_TLS_ENDPOINT' (Start-Server)
  Test-Program 'TLS without revocation list' 'kelvo_tests_archiving' 'RealMachine.Store*'
} catch {
  Add-Row 'preparation' "FAILED: $_" 'no error'
} finally {
  if ($server) {
    Stop-Job $server
    Remove-Job $server -Force
  }
  foreach ($certificate in $certificates) {
    Remove-Item -LiteralPath $certificate -ErrorAction SilentlyContinue
  }
  if ($zone) { & tzutil.exe /s $zone }
  if ($made) {
    $kept = Join-Path ([IO.Path]::GetTempPath()) 'kelvocheck-logs'
    if ($kept.StartsWith($Work)) { $kept = $Work + '-logs' }
    [void](New-Item -ItemType Directory -Path $kept -Force)
    Copy-Item -Path (Join-Path $Work '*.log*') -Destination $kept -ErrorAction SilentlyContinue
    if (Test-Path -LiteralPath "$Work\tree\2024") { [IO.Directory]::Delete("$Work\tree\2024") }
    foreach ($disk in $disks) { Remove-Disk $disk }
    & mountvol.exe "$Work\mount\" /D 2>$null | Out-Null
    Remove-Item -LiteralPath $Work -Recurse -Force -ErrorAction SilentlyContinue
    Write-Host "What the programs said is in $kept."
  }
}

$rows | Format-Table -AutoSize -Wrap | Out-String -Width 120 | Write-Host
$bad = @($rows | Where-Object { $_.Result -like 'FAILED*' }).Count
Write-Host "$($rows.Count) checks, $bad failed."
exit $bad
