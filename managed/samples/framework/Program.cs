// A program of the .NET Framework, in the style of its time. kite.managed.dll has to lie beside it, because the
// .NET Framework has no start-up hooks; the reference in framework.csproj puts it there.
//
//     corvane run --tree --values all -- framework.exe
using System;
using System.Collections.Generic;
using Corvane.Instrumentation;

namespace Accounts
{
    internal static class Program
    {
        private static int Main()
        {
            Ledger ledger = new Ledger();
            ledger.Book("rent", -700);
            ledger.Book("wages", 2100);
            Console.WriteLine("The balance is {0}.", ledger.Balance());
            try
            {
                ledger.Book("nothing", 0);
            }
            catch (ArgumentOutOfRangeException)
            {
                Console.WriteLine("Nothing is not booked.");
            }
            return 0;
        }
    }

    internal sealed class Ledger
    {
        private readonly List<int> amounts = new List<int>();

        [Trace]
        public void Book(string text, int amount)
        {
            if (amount == 0)
            {
                throw new ArgumentOutOfRangeException("amount");
            }
            amounts.Add(amount);
        }

        [Trace]
        public int Balance()
        {
            int sum = 0;
            foreach (int amount in amounts)
            {
                sum += amount;
            }
            return sum;
        }
    }
}
