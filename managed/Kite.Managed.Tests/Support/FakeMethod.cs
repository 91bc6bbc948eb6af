// A method that does something of a test's choice when its parameters are asked for.
using System;
using System.Globalization;
using System.Reflection;

namespace Kite.Managed.Tests;

internal class FakeMethod(Func<ParameterInfo[]> parameters) : MethodInfo
{
    public override string Name => "Method";

    public override Type? DeclaringType => null;

    public override Type? ReflectedType => null;

    public override Module Module => typeof(FakeMethod).Module;

    public override MethodAttributes Attributes => MethodAttributes.Static;

    public override RuntimeMethodHandle MethodHandle => throw new NotSupportedException();

    public override ICustomAttributeProvider ReturnTypeCustomAttributes => throw new NotSupportedException();

    public override ParameterInfo[] GetParameters() => parameters();

    public override MethodInfo GetBaseDefinition() => this;

    public override MethodImplAttributes GetMethodImplementationFlags() => default;

    public override object[] GetCustomAttributes(bool inherit) => [];

    public override object[] GetCustomAttributes(Type attributeType, bool inherit) => [];

    public override bool IsDefined(Type attributeType, bool inherit) => false;

    public override object Invoke(
        object? obj, BindingFlags invokeAttr, Binder? binder, object?[]? parameters,
        CultureInfo? culture) => throw new NotSupportedException();
}
