// The methods of the CLR's metadata interfaces that answer with a result, for fakes to be
// expanded from. Order does not matter here: the platform's headers declare the tables.
// Columns: name, parameter types.
#pragma once

// clang-format off

#define METADATA_IMPORT_METHODS(X) \
    X(CountEnum,                (HCORENUM, ULONG*)) \
    X(ResetEnum,                (HCORENUM, ULONG)) \
    X(EnumTypeDefs,             (HCORENUM*, mdTypeDef*, ULONG, ULONG*)) \
    X(EnumInterfaceImpls,       (HCORENUM*, mdTypeDef, mdInterfaceImpl*, ULONG, ULONG*)) \
    X(EnumTypeRefs,             (HCORENUM*, mdTypeRef*, ULONG, ULONG*)) \
    X(FindTypeDefByName,        (LPCWSTR, mdToken, mdTypeDef*)) \
    X(GetScopeProps,            (LPWSTR, ULONG, ULONG*, GUID*)) \
    X(GetModuleFromScope,       (mdModule*)) \
    X(GetTypeDefProps,          (mdTypeDef, LPWSTR, ULONG, ULONG*, DWORD*, mdToken*)) \
    X(GetInterfaceImplProps,    (mdInterfaceImpl, mdTypeDef*, mdToken*)) \
    X(GetTypeRefProps,          (mdTypeRef, mdToken*, LPWSTR, ULONG, ULONG*)) \
    X(ResolveTypeRef,           (mdTypeRef, REFIID, IUnknown**, mdTypeDef*)) \
    X(EnumMembers,              (HCORENUM*, mdTypeDef, mdToken*, ULONG, ULONG*)) \
    X(EnumMembersWithName,      (HCORENUM*, mdTypeDef, LPCWSTR, mdToken*, ULONG, ULONG*)) \
    X(EnumMethods,              (HCORENUM*, mdTypeDef, mdMethodDef*, ULONG, ULONG*)) \
    X(EnumMethodsWithName,      (HCORENUM*, mdTypeDef, LPCWSTR, mdMethodDef*, ULONG, ULONG*)) \
    X(EnumFields,               (HCORENUM*, mdTypeDef, mdFieldDef*, ULONG, ULONG*)) \
    X(EnumFieldsWithName,       (HCORENUM*, mdTypeDef, LPCWSTR, mdFieldDef*, ULONG, ULONG*)) \
    X(EnumParams,               (HCORENUM*, mdMethodDef, mdParamDef*, ULONG, ULONG*)) \
    X(EnumMemberRefs,           (HCORENUM*, mdToken, mdMemberRef*, ULONG, ULONG*)) \
    X(EnumMethodImpls,          (HCORENUM*, mdTypeDef, mdToken*, mdToken*, ULONG, ULONG*)) \
    X(EnumPermissionSets,       (HCORENUM*, mdToken, DWORD, mdPermission*, ULONG, ULONG*)) \
    X(FindMember,               (mdTypeDef, LPCWSTR, PCCOR_SIGNATURE, ULONG, mdToken*)) \
    X(FindMethod,               (mdTypeDef, LPCWSTR, PCCOR_SIGNATURE, ULONG, mdMethodDef*)) \
    X(FindField,                (mdTypeDef, LPCWSTR, PCCOR_SIGNATURE, ULONG, mdFieldDef*)) \
    X(FindMemberRef,            (mdTypeRef, LPCWSTR, PCCOR_SIGNATURE, ULONG, mdMemberRef*)) \
    X(GetMethodProps,           (mdMethodDef, mdTypeDef*, LPWSTR, ULONG, ULONG*, DWORD*, PCCOR_SIGNATURE*, ULONG*, ULONG*, DWORD*)) \
    X(GetMemberRefProps,        (mdMemberRef, mdToken*, LPWSTR, ULONG, ULONG*, PCCOR_SIGNATURE*, ULONG*)) \
    X(EnumProperties,           (HCORENUM*, mdTypeDef, mdProperty*, ULONG, ULONG*)) \
    X(EnumEvents,               (HCORENUM*, mdTypeDef, mdEvent*, ULONG, ULONG*)) \
    X(GetEventProps,            (mdEvent, mdTypeDef*, LPCWSTR, ULONG, ULONG*, DWORD*, mdToken*, mdMethodDef*, mdMethodDef*, mdMethodDef*, mdMethodDef*, ULONG, ULONG*)) \
    X(EnumMethodSemantics,      (HCORENUM*, mdMethodDef, mdToken*, ULONG, ULONG*)) \
    X(GetMethodSemantics,       (mdMethodDef, mdToken, DWORD*)) \
    X(GetClassLayout,           (mdTypeDef, DWORD*, COR_FIELD_OFFSET*, ULONG, ULONG*, ULONG*)) \
    X(GetFieldMarshal,          (mdToken, PCCOR_SIGNATURE*, ULONG*)) \
    X(GetRVA,                   (mdToken, ULONG*, DWORD*)) \
    X(GetPermissionSetProps,    (mdPermission, DWORD*, void const**, ULONG*)) \
    X(GetSigFromToken,          (mdSignature, PCCOR_SIGNATURE*, ULONG*)) \
    X(GetModuleRefProps,        (mdModuleRef, LPWSTR, ULONG, ULONG*)) \
    X(EnumModuleRefs,           (HCORENUM*, mdModuleRef*, ULONG, ULONG*)) \
    X(GetTypeSpecFromToken,     (mdTypeSpec, PCCOR_SIGNATURE*, ULONG*)) \
    X(GetNameFromToken,         (mdToken, MDUTF8CSTR*)) \
    X(EnumUnresolvedMethods,    (HCORENUM*, mdToken*, ULONG, ULONG*)) \
    X(GetUserString,            (mdString, LPWSTR, ULONG, ULONG*)) \
    X(GetPinvokeMap,            (mdToken, DWORD*, LPWSTR, ULONG, ULONG*, mdModuleRef*)) \
    X(EnumSignatures,           (HCORENUM*, mdSignature*, ULONG, ULONG*)) \
    X(EnumTypeSpecs,            (HCORENUM*, mdTypeSpec*, ULONG, ULONG*)) \
    X(EnumUserStrings,          (HCORENUM*, mdString*, ULONG, ULONG*)) \
    X(GetParamForMethodIndex,   (mdMethodDef, ULONG, mdParamDef*)) \
    X(EnumCustomAttributes,     (HCORENUM*, mdToken, mdToken, mdCustomAttribute*, ULONG, ULONG*)) \
    X(GetCustomAttributeProps,  (mdCustomAttribute, mdToken*, mdToken*, void const**, ULONG*)) \
    X(FindTypeRef,              (mdToken, LPCWSTR, mdTypeRef*)) \
    X(GetMemberProps,           (mdToken, mdTypeDef*, LPWSTR, ULONG, ULONG*, DWORD*, PCCOR_SIGNATURE*, ULONG*, ULONG*, DWORD*, DWORD*, UVCP_CONSTANT*, ULONG*)) \
    X(GetFieldProps,            (mdFieldDef, mdTypeDef*, LPWSTR, ULONG, ULONG*, DWORD*, PCCOR_SIGNATURE*, ULONG*, DWORD*, UVCP_CONSTANT*, ULONG*)) \
    X(GetPropertyProps,         (mdProperty, mdTypeDef*, LPCWSTR, ULONG, ULONG*, DWORD*, PCCOR_SIGNATURE*, ULONG*, DWORD*, UVCP_CONSTANT*, ULONG*, mdMethodDef*, mdMethodDef*, mdMethodDef*, ULONG, ULONG*)) \
    X(GetParamProps,            (mdParamDef, mdMethodDef*, ULONG*, LPWSTR, ULONG, ULONG*, DWORD*, DWORD*, UVCP_CONSTANT*, ULONG*)) \
    X(GetCustomAttributeByName, (mdToken, LPCWSTR, const void**, ULONG*)) \
    X(GetNestedClassProps,      (mdTypeDef, mdTypeDef*)) \
    X(GetNativeCallConvFromSig, (void const*, ULONG, ULONG*)) \
    X(IsGlobal,                 (mdToken, int*))

#define METADATA_ASSEMBLY_IMPORT_METHODS(X) \
    X(GetAssemblyProps,           (mdAssembly, const void**, ULONG*, ULONG*, LPWSTR, ULONG, ULONG*, ASSEMBLYMETADATA*, DWORD*)) \
    X(GetAssemblyRefProps,        (mdAssemblyRef, const void**, ULONG*, LPWSTR, ULONG, ULONG*, ASSEMBLYMETADATA*, const void**, ULONG*, DWORD*)) \
    X(GetFileProps,               (mdFile, LPWSTR, ULONG, ULONG*, const void**, ULONG*, DWORD*)) \
    X(GetExportedTypeProps,       (mdExportedType, LPWSTR, ULONG, ULONG*, mdToken*, mdTypeDef*, DWORD*)) \
    X(GetManifestResourceProps,   (mdManifestResource, LPWSTR, ULONG, ULONG*, mdToken*, DWORD*, DWORD*)) \
    X(EnumAssemblyRefs,           (HCORENUM*, mdAssemblyRef*, ULONG, ULONG*)) \
    X(EnumFiles,                  (HCORENUM*, mdFile*, ULONG, ULONG*)) \
    X(EnumExportedTypes,          (HCORENUM*, mdExportedType*, ULONG, ULONG*)) \
    X(EnumManifestResources,      (HCORENUM*, mdManifestResource*, ULONG, ULONG*)) \
    X(GetAssemblyFromScope,       (mdAssembly*)) \
    X(FindExportedTypeByName,     (LPCWSTR, mdToken, mdExportedType*)) \
    X(FindManifestResourceByName, (LPCWSTR, mdManifestResource*)) \
    X(FindAssembliesByName,       (LPCWSTR, LPCWSTR, LPCWSTR, IUnknown**, ULONG, ULONG*))

#define METADATA_EMIT_METHODS(X) \
    X(SetModuleProps,             (LPCWSTR)) \
    X(Save,                       (LPCWSTR, DWORD)) \
    X(SaveToStream,               (IStream*, DWORD)) \
    X(GetSaveSize,                (CorSaveSize, DWORD*)) \
    X(DefineTypeDef,              (LPCWSTR, DWORD, mdToken, mdToken*, mdTypeDef*)) \
    X(DefineNestedType,           (LPCWSTR, DWORD, mdToken, mdToken*, mdTypeDef, mdTypeDef*)) \
    X(SetHandler,                 (IUnknown*)) \
    X(DefineMethod,               (mdTypeDef, LPCWSTR, DWORD, PCCOR_SIGNATURE, ULONG, ULONG, DWORD, mdMethodDef*)) \
    X(DefineMethodImpl,           (mdTypeDef, mdToken, mdToken)) \
    X(DefineTypeRefByName,        (mdToken, LPCWSTR, mdTypeRef*)) \
    X(DefineImportType,           (IMetaDataAssemblyImport*, const void*, ULONG, IMetaDataImport*, mdTypeDef, IMetaDataAssemblyEmit*, mdTypeRef*)) \
    X(DefineMemberRef,            (mdToken, LPCWSTR, PCCOR_SIGNATURE, ULONG, mdMemberRef*)) \
    X(DefineImportMember,         (IMetaDataAssemblyImport*, const void*, ULONG, IMetaDataImport*, mdToken, IMetaDataAssemblyEmit*, mdToken, mdMemberRef*)) \
    X(DefineEvent,                (mdTypeDef, LPCWSTR, DWORD, mdToken, mdMethodDef, mdMethodDef, mdMethodDef, mdMethodDef*, mdEvent*)) \
    X(SetClassLayout,             (mdTypeDef, DWORD, COR_FIELD_OFFSET*, ULONG)) \
    X(DeleteClassLayout,          (mdTypeDef)) \
    X(SetFieldMarshal,            (mdToken, PCCOR_SIGNATURE, ULONG)) \
    X(DeleteFieldMarshal,         (mdToken)) \
    X(DefinePermissionSet,        (mdToken, DWORD, void const*, ULONG, mdPermission*)) \
    X(SetRVA,                     (mdMethodDef, ULONG)) \
    X(GetTokenFromSig,            (PCCOR_SIGNATURE, ULONG, mdSignature*)) \
    X(DefineModuleRef,            (LPCWSTR, mdModuleRef*)) \
    X(SetParent,                  (mdMemberRef, mdToken)) \
    X(GetTokenFromTypeSpec,       (PCCOR_SIGNATURE, ULONG, mdTypeSpec*)) \
    X(SaveToMemory,               (void*, ULONG)) \
    X(DefineUserString,           (LPCWSTR, ULONG, mdString*)) \
    X(DeleteToken,                (mdToken)) \
    X(SetMethodProps,             (mdMethodDef, DWORD, ULONG, DWORD)) \
    X(SetTypeDefProps,            (mdTypeDef, DWORD, mdToken, mdToken*)) \
    X(SetEventProps,              (mdEvent, DWORD, mdToken, mdMethodDef, mdMethodDef, mdMethodDef, mdMethodDef*)) \
    X(SetPermissionSetProps,      (mdToken, DWORD, void const*, ULONG, mdPermission*)) \
    X(DefinePinvokeMap,           (mdToken, DWORD, LPCWSTR, mdModuleRef)) \
    X(SetPinvokeMap,              (mdToken, DWORD, LPCWSTR, mdModuleRef)) \
    X(DeletePinvokeMap,           (mdToken)) \
    X(DefineCustomAttribute,      (mdToken, mdToken, void const*, ULONG, mdCustomAttribute*)) \
    X(SetCustomAttributeValue,    (mdCustomAttribute, void const*, ULONG)) \
    X(DefineField,                (mdTypeDef, LPCWSTR, DWORD, PCCOR_SIGNATURE, ULONG, DWORD, void const*, ULONG, mdFieldDef*)) \
    X(DefineProperty,             (mdTypeDef, LPCWSTR, DWORD, PCCOR_SIGNATURE, ULONG, DWORD, void const*, ULONG, mdMethodDef, mdMethodDef, mdMethodDef*, mdProperty*)) \
    X(DefineParam,                (mdMethodDef, ULONG, LPCWSTR, DWORD, DWORD, void const*, ULONG, mdParamDef*)) \
    X(SetFieldProps,              (mdFieldDef, DWORD, DWORD, void const*, ULONG)) \
    X(SetPropertyProps,           (mdProperty, DWORD, DWORD, void const*, ULONG, mdMethodDef, mdMethodDef, mdMethodDef*)) \
    X(SetParamProps,              (mdParamDef, LPCWSTR, DWORD, DWORD, void const*, ULONG)) \
    X(DefineSecurityAttributeSet, (mdToken, COR_SECATTR*, ULONG, ULONG*)) \
    X(ApplyEditAndContinue,       (IUnknown*)) \
    X(TranslateSigWithScope,      (IMetaDataAssemblyImport*, const void*, ULONG, IMetaDataImport*, PCCOR_SIGNATURE, ULONG, IMetaDataAssemblyEmit*, IMetaDataEmit*, PCOR_SIGNATURE, ULONG, ULONG*)) \
    X(SetMethodImplFlags,         (mdMethodDef, DWORD)) \
    X(SetFieldRVA,                (mdFieldDef, ULONG)) \
    X(Merge,                      (IMetaDataImport*, IMapToken*, IUnknown*)) \
    X(MergeEnd,                   ())

#define METADATA_ASSEMBLY_EMIT_METHODS(X) \
    X(DefineAssembly,           (const void*, ULONG, ULONG, LPCWSTR, const ASSEMBLYMETADATA*, DWORD, mdAssembly*)) \
    X(DefineAssemblyRef,        (const void*, ULONG, LPCWSTR, const ASSEMBLYMETADATA*, const void*, ULONG, DWORD, mdAssemblyRef*)) \
    X(DefineFile,               (LPCWSTR, const void*, ULONG, DWORD, mdFile*)) \
    X(DefineExportedType,       (LPCWSTR, mdToken, mdTypeDef, DWORD, mdExportedType*)) \
    X(DefineManifestResource,   (LPCWSTR, mdToken, DWORD, DWORD, mdManifestResource*)) \
    X(SetAssemblyProps,         (mdAssembly, const void*, ULONG, ULONG, LPCWSTR, const ASSEMBLYMETADATA*, DWORD)) \
    X(SetAssemblyRefProps,      (mdAssemblyRef, const void*, ULONG, LPCWSTR, const ASSEMBLYMETADATA*, const void*, ULONG, DWORD)) \
    X(SetFileProps,             (mdFile, const void*, ULONG, DWORD)) \
    X(SetExportedTypeProps,     (mdExportedType, mdToken, mdTypeDef, DWORD)) \
    X(SetManifestResourceProps, (mdManifestResource, mdToken, DWORD, DWORD))

// clang-format on
