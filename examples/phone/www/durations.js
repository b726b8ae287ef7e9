// Lengths of time as people say them; duration.html and ago.html say the same without this script.

import { text } from './page.js';

// Splits seconds into the largest two units.
function split(seconds) {
    const minutes = Math.floor(seconds / 60);
    const days = Math.floor(minutes / (24 * 60));
    return {days, hours: Math.floor(minutes / 60) % 24, minutes: days ? 0 : minutes % 60};
}

const dayKey = days => (days === 1 ? 'day' : 'days');

export function durationText(seconds) {
    const parts = split(seconds);
    const shown = ['days', 'hours', 'minutes'].filter(unit => parts[unit] > 0);
    return shown.map(unit => text('time-' + (unit === 'days' ? dayKey(parts.days) : unit), parts))
        .join(' ') || text('time-moment');
}

export function agoText(seconds) {
    const parts = split(seconds);
    const largest = ['days', 'hours', 'minutes'].find(unit => parts[unit] > 0);
    return text('ago-' + (largest === 'days' ? dayKey(parts.days) : largest || 'now'), parts);
}
