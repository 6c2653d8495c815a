#pragma once

/// dPart in per cent of dWhole. A whole of 0 gives an infinity, or NaN for 0 of 0.
inline float Percent(double dPart, double dWhole)
{
    return static_cast<float>(100.0 * dPart / dWhole);
}

/// The same; 0 when the whole is 0.
inline float PercentOrZero(double dPart, double dWhole)
{
    return dWhole == 0 ? 0.0F : Percent(dPart, dWhole);
}

/// The same by way of the quotient, which rounds in other places than Percent. Client tools see each report's own.
inline float QuotientPercent(double dPart, double dWhole)
{
    return static_cast<float>(dPart / dWhole * 100.0);
}
inline float QuotientPercentOrZero(double dPart, double dWhole)
{
    return dWhole == 0 ? 0.0F : QuotientPercent(dPart, dWhole);
}
