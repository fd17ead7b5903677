// SPDX-License-Identifier: MIT
// Colour maps, as pixels (0xAABBGGRR, the order of canvas bytes on every machine that runs a browser).

const pixel = (r, g, b) => ((255 << 24) | (b << 16) | (g << 8) | r) >>> 0;
const byte = (x) => Math.round(Math.min(1, Math.max(0, x)) * 255);

// Viridis as a polynomial per colour; it stays within 2 % of the published table.
const VIRIDIS = [
  [0.27773, 0.10509, -0.33086, -4.63423, 6.22827, 4.77638, -5.43546],
  [0.00541, 1.40461, 0.21485, -5.7991, 14.17993, -13.74515, 4.64585],
  [0.3341, 1.38459, 0.0951, -19.33244, 56.69055, -65.35303, 26.31244],
];

export function viridis() {
  return Uint32Array.from({ length: 256 }, (_, i) =>
    pixel(...VIRIDIS.map((c) => byte(c.reduceRight((sum, x) => sum * (i / 255) + x, 0)))),
  );
}

const gamma = (x) => (x <= 0.0031308 ? 12.92 * x : 1.055 * Math.max(0, x) ** (1 / 2.4) - 0.055);

/// sRGB bytes of a colour by its perceived lightness, chroma and hue (Oklab).
export function oklch(lightness, chroma, degrees) {
  const a = chroma * Math.cos((degrees * Math.PI) / 180);
  const b = chroma * Math.sin((degrees * Math.PI) / 180);
  const l = (lightness + 0.3963377774 * a + 0.2158037573 * b) ** 3;
  const m = (lightness - 0.1055613458 * a - 0.0638541728 * b) ** 3;
  const s = (lightness - 0.0894841775 * a - 1.291485548 * b) ** 3;
  return [
    4.0767416621 * l - 3.3077115913 * m + 0.2309699292 * s,
    -1.2684380046 * l + 2.6097574011 * m - 0.3413193965 * s,
    -0.0041960863 * l - 0.7034186147 * m + 1.707614701 * s,
  ].map((x) => byte(gamma(x)));
}

// Chroma 0.12 is inside sRGB at every hue, so that no direction looks brighter than another.
const CHROMA = 0.12;
const LIGHTNESS = 0.74;
const HUE_OF_NORTH = 20;

/// Colour of a direction: all directions alike in lightness, 0 and 360 degrees the same.
export const azimuthColour = (degrees) => oklch(LIGHTNESS, CHROMA, degrees + HUE_OF_NORTH);
export const azimuthCss = (degrees) => `rgb(${azimuthColour(degrees).join()})`;

export const QUALITY_STEPS = 16;

/// Pixels by quality step and whole degree: low quality is dark and grey.
export function bearingMap() {
  const map = new Uint32Array(QUALITY_STEPS * 360);
  for (let q = 0; q < QUALITY_STEPS; ++q)
    for (let degrees = 0; degrees < 360; ++degrees) {
      const share = (q + 1) / QUALITY_STEPS;
      map[q * 360 + degrees] = pixel(
        ...oklch(0.18 + (LIGHTNESS - 0.18) * share, CHROMA * share, degrees + HUE_OF_NORTH),
      );
    }
  return map;
}
