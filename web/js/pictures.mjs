// SPDX-License-Identifier: MIT
// What the two waterfalls show: levels in viridis, bearings by hue with quality as lightness.
import { QUALITY_STEPS, bearingMap, viridis } from './colours.mjs';
import { byId } from './dom.mjs';
import { degrees, frequency, utc } from './format.mjs';
import { NO_VALUE } from './frame.mjs';
import { Waterfall } from './waterfall.mjs';

const VIRIDIS = viridis();
const BEARINGS = bearingMap();
const NOTHING = 0xff1a1510; // as EMPTY of the waterfall

function paintLevels(levels, [lowest, highest]) {
  const factor = 255 / (highest - lowest);
  return (base, lo, hi, pixels) => {
    for (let c = 0; c < pixels.length; ++c) {
      let best = -32768;
      for (let i = lo[c]; i < hi[c]; ++i) {
        const level = levels[base + i];
        if (level !== NO_VALUE && level > best) best = level;
      }
      pixels[c] =
        best === -32768 ? NOTHING : VIRIDIS[Math.max(0, Math.min(255, ((best - lowest) * factor) | 0))];
    }
  };
}

function paintBearings([azimuths, qualities]) {
  return (base, lo, hi, pixels) => {
    for (let c = 0; c < pixels.length; ++c) {
      let best = -1;
      let azimuth = 0;
      for (let i = base + lo[c]; i < base + hi[c]; ++i)
        if (qualities[i] !== NO_VALUE && qualities[i] > best) {
          best = qualities[i];
          azimuth = azimuths[i];
        }
      if (best < 0) {
        pixels[c] = NOTHING;
        continue;
      }
      const step = Math.min(QUALITY_STEPS - 1, ((best * QUALITY_STEPS) / 100) | 0);
      pixels[c] = BEARINGS[step * 360 + (((azimuth / 10) | 0) % 360)];
    }
  };
}

/// Value of a ring at a frequency in a row; null where there is none.
function valueAt({ history, grid }, ring, hz, slot) {
  const index = grid.indexOf(hz);
  if (index < 0 || slot < history.oldest || !history.has(slot)) return null;
  const value = ring[history.baseOf(slot) + Math.floor(index / history.factor)];
  return value === NO_VALUE ? null : value;
}

const whenOf = (stream, slot) => {
  const { history } = stream;
  const lost = history.lostIn(slot);
  return `${utc(history.timeOf(slot), true)}${lost > 0 ? ` · ${lost} datagrams lost` : ''}`;
};

export function levelWaterfall(page) {
  const panel = byId('waterfall');
  const stream = () => page.session.main;
  return new Waterfall(page, panel.querySelector('.picture'), {
    stream,
    view: () => stream().view,
    hasAxis: () => false,
    readout: panel.querySelector('.readout'),
    painter: () => paintLevels(stream().levelRing, page.levels.rawColours),
    key: () => `${stream().name} ${page.levels.rawColours}`,
    onClick: (hz) => page.spectrum.placeMarker(hz),
    read(hz, slot) {
      return `${frequency(hz, stream().grid.step / 10)}  ${page.levels.text(valueAt(stream(), stream().levelRing, hz, slot))}  ${whenOf(stream(), slot)}`;
    },
  });
}

export function bearingWaterfall(page) {
  const panel = byId('bearings');
  const { df } = page.session.streams;
  return new Waterfall(page, panel.querySelector('.picture'), {
    stream: () => df,
    view: () => page.session.bearingView,
    readout: panel.querySelector('.readout'),
    hasAxis: () => page.session.bearingView === df.view && page.session.main !== df,
    painter: (history) => paintBearings(history.rows),
    key: () => '',
    onClick: (hz) => page.select(hz),
    read(hz, slot) {
      const [azimuth, quality] = [0, 1].map((i) => valueAt(df, df.history.rows[i], hz, slot));
      const reason =
        azimuth === null
          ? `no bearing${page.reasonAt(hz)}`
          : `${degrees(azimuth / 10)}  quality ${quality} %`;
      return `${frequency(hz, df.grid.step / 10)}  ${reason}  ${whenOf(df, slot)}`;
    },
  });
}
