# The .NET SDK, which a machine must have, and the win-x64 runtimes that the tests run in, from NuGet;
# sourced by ./dev.

dotnet_roots=$cache/dotnet-win-x64-${DOTNET_RUNTIMES// /-}-$DOTNET_RECIPE

# All restores share the package folder in the cache, and none asks the feed for more than is missing there.
export NUGET_PACKAGES=$cache/nuget NuGetAudit=false

check_dotnet_sdk() {
    local newest
    newest=$(dotnet --list-sdks 2>/dev/null | cut -d ' ' -f 1 | sort --version-sort | tail -n 1) || true
    version_at_least "$newest" "$DOTNET_SDK_MINIMUM" && return
    die "dev: missing: a .NET SDK, $DOTNET_SDK_MINIMUM or newer (on PATH: ${newest:-none}), which Debian 12 does not package." \
        "Either install the package dotnet-sdk-${DOTNET_SDK_MINIMUM%.*} from Microsoft's Debian package feed, or unpack an" \
        "SDK archive for linux-x64 and name its folder: export DOTNET_ROOT=FOLDER PATH=FOLDER:\$PATH"
}

# Makes a DOTNET_ROOT for each runtime, named after its major version. It has the web framework, too.
make_dotnet_roots() {
    local into=$1 work=$1/work version framework package shared fxr
    mkdir "$work"
    cat >"$work/runtimes.csproj" <<END
<Project Sdk="Microsoft.NET.Sdk">
  <PropertyGroup>
    <TargetFramework>net${DOTNET_SDK_MINIMUM%.*}</TargetFramework>
  </PropertyGroup>
  <ItemGroup>
    <PackageDownload Include="Microsoft.NETCore.App.Runtime.win-x64" Version="[${DOTNET_RUNTIMES// /];[}]" />
    <PackageDownload Include="Microsoft.AspNetCore.App.Runtime.win-x64" Version="[${DOTNET_RUNTIMES// /];[}]" />
  </ItemGroup>
</Project>
END
    dotnet restore "$work/runtimes.csproj"
    for version in $DOTNET_RUNTIMES; do
        for framework in NETCore AspNetCore; do
            package=$NUGET_PACKAGES/microsoft.${framework,,}.app.runtime.win-x64/$version/runtimes/win-x64
            shared=$into/${version%%.*}/shared/Microsoft.$framework.App/$version
            mkdir -p "$shared"
            cp -r "$package"/lib/net*/. "$package/native/." "$shared"
        done
        fxr=$into/${version%%.*}/host/fxr/$version
        mkdir -p "$fxr"
        cp "$into/${version%%.*}/shared/Microsoft.NETCore.App/$version/hostfxr.dll" "$fxr"
    done
    rm -rf "$work"
}

setup_dotnet() {
    local hint
    hint="Missing: the NuGet packages Microsoft.NETCore.App.Runtime.win-x64 and"
    hint+=" Microsoft.AspNetCore.App.Runtime.win-x64, versions $DOTNET_RUNTIMES."$'\n'
    hint+="They come from the feed that 'dotnet nuget list source' names: check that it can be reached."
    provide dotnet "$dotnet_roots" "fetching the .NET runtimes ${DOTNET_RUNTIMES// /, } for Windows" "$hint" make_dotnet_roots
}
