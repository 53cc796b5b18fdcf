package kora.lumacast;

/**
 * Implemented by applications and registered with ILumacast.setCallback to receive
 * what the camera pushes. Calls arrive one at a time per datum, in the camera's order.
 */
interface ILumacastCallback {
    /** One AI result as JSON text. */
    void onAiData(@utf8InCpp String data);
    /** One AI result as serialised protobuf bytes. */
    void onProtoBuf(in byte[] data);
    /** One data block of a frame message, with the message's block count and the block's parameter. */
    void onFrame(int blockCount, int blockParam, in byte[] data);
}
