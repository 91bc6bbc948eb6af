// Methods with few and with many parameters. Injected code counts up to 127.
using Corvane.Instrumentation;
using static Matrix.Output;

namespace Matrix;

internal static class Counts
{
    public static void Run()
    {
        Show(Take0());
        Show(Take1(1));
        Show(Take5(1, 2, 3, 4, 5));
        Show(new Instance().Take5(1, "two", 3, "four", 5));
        Show(Take127(
            1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
            29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54,
            55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80,
            81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104,
            105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125,
            126, 127), "Take127");
        Show(new Instance().Take127(
            1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
            29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54,
            55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80,
            81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104,
            105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125,
            126, 127), "new Instance().Take127");
        Show(Take128(
            1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
            29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54,
            55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80,
            81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104,
            105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125,
            126, 127, 128), "Take128");
        Show(Take300(
            1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28,
            29, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 42, 43, 44, 45, 46, 47, 48, 49, 50, 51, 52, 53, 54,
            55, 56, 57, 58, 59, 60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78, 79, 80,
            81, 82, 83, 84, 85, 86, 87, 88, 89, 90, 91, 92, 93, 94, 95, 96, 97, 98, 99, 100, 101, 102, 103, 104,
            105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119, 120, 121, 122, 123, 124, 125,
            126, 127, 128, 129, 130, 131, 132, 133, 134, 135, 136, 137, 138, 139, 140, 141, 142, 143, 144, 145, 146,
            147, 148, 149, 150, 151, 152, 153, 154, 155, 156, 157, 158, 159, 160, 161, 162, 163, 164, 165, 166, 167,
            168, 169, 170, 171, 172, 173, 174, 175, 176, 177, 178, 179, 180, 181, 182, 183, 184, 185, 186, 187, 188,
            189, 190, 191, 192, 193, 194, 195, 196, 197, 198, 199, 200, 201, 202, 203, 204, 205, 206, 207, 208, 209,
            210, 211, 212, 213, 214, 215, 216, 217, 218, 219, 220, 221, 222, 223, 224, 225, 226, 227, 228, 229, 230,
            231, 232, 233, 234, 235, 236, 237, 238, 239, 240, 241, 242, 243, 244, 245, 246, 247, 248, 249, 250, 251,
            252, 253, 254, 255, 256, 257, 258, 259, 260, 261, 262, 263, 264, 265, 266, 267, 268, 269, 270, 271, 272,
            273, 274, 275, 276, 277, 278, 279, 280, 281, 282, 283, 284, 285, 286, 287, 288, 289, 290, 291, 292, 293,
            294, 295, 296, 297, 298, 299, 300), "Take300");
    }

    [Trace] private static int Take0() => 0;
    [Trace] private static int Take1(int p1) => p1;
    [Trace] private static int Take5(int p1, int p2, int p3, int p4, int p5) => p1 + p2 + p3 + p4 + p5;

    [Trace]
    private static int Take127(
        int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8, int p9, int p10, int p11, int p12, int p13,
        int p14, int p15, int p16, int p17, int p18, int p19, int p20, int p21, int p22, int p23, int p24, int p25,
        int p26, int p27, int p28, int p29, int p30, int p31, int p32, int p33, int p34, int p35, int p36, int p37,
        int p38, int p39, int p40, int p41, int p42, int p43, int p44, int p45, int p46, int p47, int p48, int p49,
        int p50, int p51, int p52, int p53, int p54, int p55, int p56, int p57, int p58, int p59, int p60, int p61,
        int p62, int p63, int p64, int p65, int p66, int p67, int p68, int p69, int p70, int p71, int p72, int p73,
        int p74, int p75, int p76, int p77, int p78, int p79, int p80, int p81, int p82, int p83, int p84, int p85,
        int p86, int p87, int p88, int p89, int p90, int p91, int p92, int p93, int p94, int p95, int p96, int p97,
        int p98, int p99, int p100, int p101, int p102, int p103, int p104, int p105, int p106, int p107, int p108,
        int p109, int p110, int p111, int p112, int p113, int p114, int p115, int p116, int p117, int p118,
        int p119, int p120, int p121, int p122, int p123, int p124, int p125, int p126, int p127) =>
        p1 + 2 * p127;

    [Trace]
    private static int Take128(
        int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8, int p9, int p10, int p11, int p12, int p13,
        int p14, int p15, int p16, int p17, int p18, int p19, int p20, int p21, int p22, int p23, int p24, int p25,
        int p26, int p27, int p28, int p29, int p30, int p31, int p32, int p33, int p34, int p35, int p36, int p37,
        int p38, int p39, int p40, int p41, int p42, int p43, int p44, int p45, int p46, int p47, int p48, int p49,
        int p50, int p51, int p52, int p53, int p54, int p55, int p56, int p57, int p58, int p59, int p60, int p61,
        int p62, int p63, int p64, int p65, int p66, int p67, int p68, int p69, int p70, int p71, int p72, int p73,
        int p74, int p75, int p76, int p77, int p78, int p79, int p80, int p81, int p82, int p83, int p84, int p85,
        int p86, int p87, int p88, int p89, int p90, int p91, int p92, int p93, int p94, int p95, int p96, int p97,
        int p98, int p99, int p100, int p101, int p102, int p103, int p104, int p105, int p106, int p107, int p108,
        int p109, int p110, int p111, int p112, int p113, int p114, int p115, int p116, int p117, int p118,
        int p119, int p120, int p121, int p122, int p123, int p124, int p125, int p126, int p127, int p128) =>
        p1 + 2 * p128;

    [Trace]
    private static int Take300(
        int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8, int p9, int p10, int p11, int p12, int p13,
        int p14, int p15, int p16, int p17, int p18, int p19, int p20, int p21, int p22, int p23, int p24, int p25,
        int p26, int p27, int p28, int p29, int p30, int p31, int p32, int p33, int p34, int p35, int p36, int p37,
        int p38, int p39, int p40, int p41, int p42, int p43, int p44, int p45, int p46, int p47, int p48, int p49,
        int p50, int p51, int p52, int p53, int p54, int p55, int p56, int p57, int p58, int p59, int p60, int p61,
        int p62, int p63, int p64, int p65, int p66, int p67, int p68, int p69, int p70, int p71, int p72, int p73,
        int p74, int p75, int p76, int p77, int p78, int p79, int p80, int p81, int p82, int p83, int p84, int p85,
        int p86, int p87, int p88, int p89, int p90, int p91, int p92, int p93, int p94, int p95, int p96, int p97,
        int p98, int p99, int p100, int p101, int p102, int p103, int p104, int p105, int p106, int p107, int p108,
        int p109, int p110, int p111, int p112, int p113, int p114, int p115, int p116, int p117, int p118,
        int p119, int p120, int p121, int p122, int p123, int p124, int p125, int p126, int p127, int p128,
        int p129, int p130, int p131, int p132, int p133, int p134, int p135, int p136, int p137, int p138,
        int p139, int p140, int p141, int p142, int p143, int p144, int p145, int p146, int p147, int p148,
        int p149, int p150, int p151, int p152, int p153, int p154, int p155, int p156, int p157, int p158,
        int p159, int p160, int p161, int p162, int p163, int p164, int p165, int p166, int p167, int p168,
        int p169, int p170, int p171, int p172, int p173, int p174, int p175, int p176, int p177, int p178,
        int p179, int p180, int p181, int p182, int p183, int p184, int p185, int p186, int p187, int p188,
        int p189, int p190, int p191, int p192, int p193, int p194, int p195, int p196, int p197, int p198,
        int p199, int p200, int p201, int p202, int p203, int p204, int p205, int p206, int p207, int p208,
        int p209, int p210, int p211, int p212, int p213, int p214, int p215, int p216, int p217, int p218,
        int p219, int p220, int p221, int p222, int p223, int p224, int p225, int p226, int p227, int p228,
        int p229, int p230, int p231, int p232, int p233, int p234, int p235, int p236, int p237, int p238,
        int p239, int p240, int p241, int p242, int p243, int p244, int p245, int p246, int p247, int p248,
        int p249, int p250, int p251, int p252, int p253, int p254, int p255, int p256, int p257, int p258,
        int p259, int p260, int p261, int p262, int p263, int p264, int p265, int p266, int p267, int p268,
        int p269, int p270, int p271, int p272, int p273, int p274, int p275, int p276, int p277, int p278,
        int p279, int p280, int p281, int p282, int p283, int p284, int p285, int p286, int p287, int p288,
        int p289, int p290, int p291, int p292, int p293, int p294, int p295, int p296, int p297, int p298,
        int p299, int p300) =>
        p1 + 2 * p300;

    private sealed class Instance
    {
        [Trace] public string Take5(int p1, string p2, int p3, string p4, int p5) => $"{p1} {p2} {p3} {p4} {p5}";

        [Trace]
        public int Take127(
            int p1, int p2, int p3, int p4, int p5, int p6, int p7, int p8, int p9, int p10, int p11, int p12,
            int p13, int p14, int p15, int p16, int p17, int p18, int p19, int p20, int p21, int p22, int p23,
            int p24, int p25, int p26, int p27, int p28, int p29, int p30, int p31, int p32, int p33, int p34,
            int p35, int p36, int p37, int p38, int p39, int p40, int p41, int p42, int p43, int p44, int p45,
            int p46, int p47, int p48, int p49, int p50, int p51, int p52, int p53, int p54, int p55, int p56,
            int p57, int p58, int p59, int p60, int p61, int p62, int p63, int p64, int p65, int p66, int p67,
            int p68, int p69, int p70, int p71, int p72, int p73, int p74, int p75, int p76, int p77, int p78,
            int p79, int p80, int p81, int p82, int p83, int p84, int p85, int p86, int p87, int p88, int p89,
            int p90, int p91, int p92, int p93, int p94, int p95, int p96, int p97, int p98, int p99, int p100,
            int p101, int p102, int p103, int p104, int p105, int p106, int p107, int p108, int p109, int p110,
            int p111, int p112, int p113, int p114, int p115, int p116, int p117, int p118, int p119, int p120,
            int p121, int p122, int p123, int p124, int p125, int p126, int p127) =>
            p1 + 2 * p127;
    }
}
